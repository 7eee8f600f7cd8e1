// An XML document: a header, and a tree under one root. It is loaded whole from a file or from memory by a parser that
// rejects nothing: what it cannot read it leaves out. Used by one thread at a time.
#ifndef QUARVEL_COMMON_XML_XMLDOCUMENT_H
#define QUARVEL_COMMON_XML_XMLDOCUMENT_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Common/xml/XmlElement.h"

// Turns a document's bytes into those of its file and back. `out` has room for `outSize` bytes; both return how many
// they wrote.
class XMLTransform {
 public:
  virtual ~XMLTransform() = default;
  virtual size_t Encode(const char* in, size_t size, char* out, size_t outSize, void* data) = 0;
  virtual size_t Decode(const char* in, size_t size, char* out, size_t outSize, void* data) = 0;
};

// The text before the root, and the comments outside it: position 0 before, 1 after the root.
class XMLHeader {
 public:
  explicit XMLHeader(std::string_view text = {});
  ~XMLHeader();
  XMLHeader(const XMLHeader&) = delete;
  XMLHeader& operator=(const XMLHeader&) = delete;

  const std::string& text() const { return m_text; }
  // Rewrites the text as a declaration of that encoding.
  void SetEncoding(std::string_view encoding);
  // The header owns the comment, unless a tree or a header has it already: then nothing is added.
  unsigned AddComment(XMLComment* comment);
  unsigned GetCommentsNum() const { return m_comments.size(); }
  XMLComment** GetComments() const { return m_comments.data(); }
  // With `part` 0 the text and the comments before the root, with 1 the comments after it.
  bool Export(FILE* stream, int part) const;
  void Export(std::string& out, int part) const;
  void ExportComments(std::string& out, unsigned position) const;
  XMLHeader* Duplicate() const;  // the caller owns it
  size_t MemoryUsage() const;

 private:
  friend class XML;

  std::string m_text;
  XmlList<XMLComment, 10> m_comments;
  bool m_isOwned = false;  // by a document
};

class XML {
 public:
  static constexpr const char* kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>";

  static constexpr size_t kSlack = 32;  // bytes of zero behind a text that is parsed
  // Bytes that a document's text can have: its parts count theirs in 32 bits.
  static constexpr uint64_t kLongest = UINT32_MAX - kSlack;

  XML();
  // Mode 0 reads the file at `source`, mode 1 the text `source`.
  XML(const char* source, int mode, XMLTransform* transform = nullptr, void* data = nullptr);
  XML(const XML& other);
  XML& operator=(const XML& other);
  ~XML();  // saves first when save-on-close is set

  // Clears the document and loads another. The source may be a text of the document's own. Always true; ParseStatus
  // tells how it went.
  bool Load(const char* source, int mode, XMLTransform* transform = nullptr, void* data = nullptr);
  bool LoadText(const char* text) { return Load(text, 1); }
  // The same with a text that is handed over, with kSlack bytes of zero behind it, and so is not copied.
  bool LoadText(Z<char> text);
  bool LoadText(const wchar_t* text);
  void Clear();

  // 0 parsed, 1 without a declaration or without any "<", 2 an element has no end. The position is the byte at which
  // parsing stopped, counted from the start of the text.
  int ParseStatus(int* position = nullptr) const;
  // Null only when the first top-level element has no end, or there is none.
  XMLElement* GetRootElement() const { return m_root.get(); }
  // Whether the root was supplied because the text is missing, empty or without any "<".
  bool HasDefaultRoot() const { return m_hasDefaultRoot; }
  // The document owns the new root and the former one is deleted. Another document's root is not taken: returns the
  // root that there is then.
  XMLElement* SetRootElement(XMLElement* root);
  XMLElement* RemoveRootElementAndKeep();  // the caller owns it
  XMLHeader* GetHeader() const { return m_header.get(); }
  // The document owns the new header and the former one is deleted. None, and another document's, is not taken: returns
  // the header that there is then.
  XMLHeader* SetHeader(XMLHeader* header);
  // Whether the trees and the comments outside them are the same.
  bool Compare(const XML& other) const;

  // Writes the document. Mode 0: UTF-8 to the file `target`, null for the one it was loaded from; mode 1: `target` is
  // an open FILE; mode 3: UTF-16 with its mark to the file. False without a file to write to, for mode 2, and with
  // nothing written when the text would be longer than a document can be. Indented by a tab per level that happens to a
  // chain of some 65,000 elements; without formatting any depth is written.
  bool Save(const void* target = nullptr, bool formatting = true, int mode = 0, XMLTransform* transform = nullptr,
            void* data = nullptr);
  void SaveOnClose(bool save) { m_saveOnClose = save; }
  bool Export(FILE* stream, bool formatting = true) const;
  bool Export(std::string& out, bool formatting = true) const;
  void SetExportFormatting(bool spaces, unsigned count);  // of every element

  size_t MemoryUsage() const;
  void CompressMemory();
  bool IntegrityTest() const { return !m_root || m_root->IntegrityTest(); }

  // The value of the first match of an XMLQuery below the root; false when nothing matches.
  bool XMLGetValue(std::string_view path, std::string& out) const;
  // Sets it, making what is missing along a path of plain names.
  bool XMLSetValue(std::string_view path, std::string_view value);

  static std::string XMLEncode(std::string_view text);
  static std::string XMLDecode(std::string_view text);
  // As the buffer forms of elements.
  static size_t XMLEncode(std::string_view text, char* out, size_t size);
  static size_t XMLDecode(std::string_view text, char* out, size_t size);
  // The whole file, with kSlack bytes of zero behind it; none when it cannot be read.
  static std::optional<Z<char>> ReadToZ(const char* path, XMLTransform* transform = nullptr, void* data = nullptr);
  static const char* Version() { return "1.2"; }

 private:
  void Parse(Z<char> text);
  void UseDefaultRoot(std::string_view name);
  void OwnRoot(XMLElement* root);
  void OwnHeader(std::unique_ptr<XMLHeader> header);

  int m_status = 0;
  int m_position = 0;
  std::string m_fileName;
  bool m_hasFileName = false;
  std::unique_ptr<XMLHeader> m_header;
  std::unique_ptr<XMLElement> m_root;
  bool m_saveOnClose = false;
  bool m_hasDefaultRoot = false;
};

#endif

// One element of an XML tree. It owns its children, attributes and texts and deletes them when it is deleted; elements
// reached through a document belong to the document. Arrays, and pointers into them, hold until the element is edited.
// A tree is used by one thread at a time. Nesting of any depth costs no stack.
//
// Forms with a buffer write at most `size` bytes with the NUL; those that return a length return the whole text's, and
// only that without a buffer. An index beyond the end changes nothing. Numbers returned by the additions are the new
// counts.
#ifndef QUARVEL_COMMON_XML_XMLELEMENT_H
#define QUARVEL_COMMON_XML_XMLELEMENT_H

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Common/xml/XmlNodes.h"

class XMLElement {
 public:
  // Reads name and attributes from a start tag's text, or, with `type` 1, takes all of it as the name, which is stored
  // escaped. The parent is only a link: the parent's children stay as they are.
  explicit XMLElement(XMLElement* parent = nullptr, std::string_view tag = {}, int type = 0);
  ~XMLElement();
  XMLElement(const XMLElement&) = delete;
  XMLElement& operator=(const XMLElement&) = delete;
  // Elements made by the parser lie in their document's memory, which lives as long as any tree in it.
  static void operator delete(XMLElement* element, std::destroying_delete_t);

  // Clears attributes, children and comments and reads the tag anew.
  void Reparse(std::string_view tag, int type = 0);

  // --- the element itself ---
  size_t GetElementName(char* buffer, size_t size, bool raw = false) const;
  std::string GetElementName(bool raw = false) const;
  void SetElementName(std::string_view name, bool raw = false);
  std::string_view name() const { return m_name.view(); }  // as stored
  int GetType() const { return m_rare ? m_rare->type : 0; }
  void SetElementParam(uint32_t param) { MakeRare().param = param; }
  uint32_t GetElementParam() const { return m_rare ? m_rare->param : 0; }
  XMLElement* GetParent() const { return m_parent; }
  void SetParent(XMLElement* parent);  // the link alone
  unsigned GetDeep() const;            // the number of its parents

  // --- lookups ---
  unsigned GetChildrenNum() const { return m_children.size(); }
  XMLElement** GetChildren() const { return m_children.data(); }
  // The first child, or its index, whose decoded name is exactly `name`; null or -1 without one.
  XMLElement* GetChild(std::string_view name) const;
  int FindElement(std::string_view name) const;
  int FindElement(const XMLElement* child) const;
  // The decoded first text of that child; false, with the output untouched, when there is no such child or it has none.
  bool GetChildContent(std::string_view name, std::string& out) const;
  bool GetChildContent(std::string_view name, char* buffer, size_t size) const;
  int32_t GetChildContentInt(std::string_view name, int32_t otherwise) const;
  bool GetChildContentBool(std::string_view name) const;
  bool GetContent(std::string& out) const;
  bool GetContent(char* buffer, size_t size) const;
  // The decoded value of the first attribute of that name; false, with the output untouched, without it.
  bool GetVariable(std::string_view name, std::string& out) const;
  bool GetVariable(std::string_view name, char* buffer, size_t size) const;
  int FindVariable(std::string_view name) const;
  // Into an array, cut to fit.
  template <size_t N>
  bool GetChildContent(std::string_view name, char (&buffer)[N]) const {
    return GetChildContent(name, buffer, N);
  }
  template <size_t N>
  bool GetContent(char (&buffer)[N]) const {
    return GetContent(buffer, N);
  }
  template <size_t N>
  bool GetVariable(std::string_view name, char (&buffer)[N]) const {
    return GetVariable(name, buffer, N);
  }

  // --- attributes and texts, in document order ---
  unsigned GetVariableNum() const { return m_rare ? m_rare->variables.size() : 0; }
  XMLVariable** GetVariables() const { return m_rare ? m_rare->variables.data() : nullptr; }
  unsigned GetContentsNum() const { return m_contents.size(); }
  XMLContent** GetContents() const { return m_contents.data(); }
  unsigned GetCommentsNum() const { return m_rare ? m_rare->comments.size() : 0; }
  XMLComment** GetComments() const { return m_rare ? m_rare->comments.data() : nullptr; }
  unsigned GetCDatasNum() const { return m_rare ? m_rare->cdatas.size() : 0; }
  XMLCData** GetCDatas() const { return m_rare ? m_rare->cdatas.data() : nullptr; }

  // --- edits of children: an element that is added leaves its former parent. One that encloses this
  // element, and a document's root, are not added. ---
  unsigned AddElement(XMLElement* element);
  XMLElement* AddElement(std::string_view name);  // a new one, its name stored escaped
  unsigned InsertElement(unsigned index, XMLElement* element);
  bool MoveElement(unsigned from, unsigned to);
  bool RemoveElement(unsigned index);
  bool RemoveElementAndKeep(unsigned index, XMLElement** kept);  // the caller owns what is kept
  void RemoveAllElements();
  // Deep copies that the caller owns: without a parent, and linked to one.
  XMLElement* Copy() const { return Duplicate(nullptr); }
  XMLElement* Duplicate(XMLElement* parent) const;

  // --- edits of attributes ---
  unsigned AddVariable(XMLVariable* variable);
  XMLVariable* AddVariable(std::string_view name, std::string_view value, bool raw = false);
  bool RemoveVariable(unsigned index);
  bool RemoveVariableAndKeep(unsigned index, XMLVariable** kept);  // may be another object than the one removed
  void RemoveAllVariables();
  // The attribute of that name; made, with that value, when it is missing.
  XMLVariable* FindVariableZ(std::string_view name, std::string_view value = {});

  // --- edits of texts: among the texts of one position, what is added comes last ---
  unsigned AddContent(XMLContent* content);
  XMLContent* AddContent(std::string_view text, unsigned position, bool raw = false);
  unsigned AddComment(XMLComment* comment);
  XMLComment* AddComment(std::string_view text, unsigned position);
  unsigned AddCData(XMLCData* cdata);
  XMLCData* AddCData(std::string_view text, unsigned position);
  bool RemoveContent(unsigned index);
  bool RemoveComment(unsigned index);
  bool RemoveCData(unsigned index);
  void RemoveAllContents();
  void RemoveAllComments();
  void RemoveAllCDatas();

  // --- queries; a path is names parted by backslashes ---
  // The first child of that name; made when it is missing and `create` is set.
  XMLElement* FindElementZ(std::string_view name, bool create = true);
  XMLElement* GetElementInSection(std::string_view path, bool create = false);
  std::string GetElementFullName() const;           // its path with the top's name
  std::string GetElementUniqueString() const;       // the same with each one's index: "\a[0]\b[2]"
  std::vector<XMLElement*> GetAllChildren() const;  // everything below, in document order
  unsigned GetAllChildrenNum() const;
  // Whether both trees hold the same; what `param`, types and formatting say does not count.
  bool Compare(const XMLElement& other) const;

  // --- order: qsort-like comparisons; equal ones keep their order ---
  using ElementCompare = std::function<int(const XMLElement*, const XMLElement*)>;
  using VariableCompare = std::function<int(const XMLVariable*, const XMLVariable*)>;
  void SortElements(const ElementCompare& compare);
  void SortVariables(const VariableCompare& compare);

  // --- housekeeping ---
  size_t MemoryUsage() const;  // bytes of everything at and below it, without a parsed document's text
  void CompressMemory();       // shrinks all arrays to their counts
  bool IntegrityTest() const;  // whether every link and position below agrees with the lists
  void SpaceForElements(unsigned more);
  void SpaceForVariables(unsigned more);
  void SpaceForContents(unsigned more);
  void SpaceForComments(unsigned more);
  void SpaceForCDatas(unsigned more);
  // Moves what is below child `index` to a side file and back; the child stays in its place, empty in between.
  bool UnloadElement(unsigned index, const char* path);
  bool ReloadElement(unsigned index);
  bool DeleteUnloadedElementFile(unsigned index);

  // --- writing, `deep` levels in; false when the stream did not take all of it, or with nothing written when it would
  // be longer than a document can be. The unit of one level's indentation is a tab unless set.
  void SetExportFormatting(bool spaces, unsigned count);
  std::pair<bool, unsigned> GetExportFormatting() const;
  bool Export(FILE* stream, unsigned deep = 0, bool formatting = true) const;
  bool Export(std::string& out, unsigned deep = 0, bool formatting = true) const;
  static bool printc(FILE* stream, const XMLElement* element, unsigned deep = 0, bool formatting = true);

 private:
  friend class XMLVariable;
  friend class XMLTextNode;
  friend class XML;
  friend class XmlTreeBuilder;

  // What few elements have.
  struct Rare {
    XmlList<XMLVariable, 20> variables;
    XmlList<XMLComment, 10> comments;
    XmlList<XMLCData, 10> cdatas;
    std::shared_ptr<XmlArena> arena;  // the memory that the parsed elements from here down lie in
    XmlText sideFile;                 // where the inside of an unloaded element is
    uint32_t param = 0;
    int32_t type = 0;
    uint32_t indentCount = 1;
    bool spaces = false;
    bool inArena = false;
  };

  struct InArena {};
  XMLElement(InArena, XMLElement* parent) : m_parent(parent) { m_name.inArena = true; }
  Rare& MakeRare();
  void Touch();
  void TakeTouchedChildren(std::vector<XMLElement*>& out);
  bool IsBelow(const XMLElement* element) const;
  template <class Function>
  void ForEachText(Function function);
  void ShiftTexts(unsigned after, int by);
  std::shared_ptr<XmlArena> Arena() const;
  bool HasSameOwn(const XMLElement& other) const;
  bool HasWholeLists() const;
  size_t OwnMemory() const;
  bool IsUnloaded() const { return m_rare && !m_rare->sideFile.view().empty(); }
  void Join(XMLElement& parent);
  bool Leave();
  uint32_t NextOrder() const;
  void CopyOwnTo(XMLElement& to) const;
  void CopyTextsTo(XMLElement& to) const;
  template <class List, class Node>
  unsigned AddText(List& list, Node* node);
  template <class List>
  bool RemoveAt(List& list, unsigned index);
  template <class List>
  void RemoveAll(List& list);

  // Gives back what a node holds; its memory too, unless that is an arena's.
  template <class Node>
  static void Delete(Node* node) {
    if (!node) return;
    if (IsInArena(*node)) {
      std::destroy_at(node);
    } else {
      delete node;
    }
  }
  static bool IsInArena(const XMLVariable& variable) { return variable.m_name.inArena; }
  static bool IsInArena(const XMLTextNode& node) { return node.m_text.inArena; }
  static bool IsInArena(const Rare& rare) { return rare.inArena; }

  XmlText m_name;
  XMLElement* m_parent = nullptr;
  XmlList<XMLElement, 20> m_children;
  XmlList<XMLContent, 4> m_contents;
  Rare* m_rare = nullptr;
};

// Comparisons by decoded name.
int XMLElementfcmp(const XMLElement* a, const XMLElement* b);
int XMLVariablefcmp(const XMLVariable* a, const XMLVariable* b);

#endif

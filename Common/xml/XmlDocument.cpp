// A document's life: loading, copying and its parts.
#include "Common/xml/XmlDocument.h"

#include <sys/stat.h>

#include <climits>
#include <cstring>
#include <cwchar>

#include "Common/xml/XmlParser.h"
#include "Common/xml/XmlTags.h"

namespace {

struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};

// A text as it is parsed; none when it is too long.
std::optional<Z<char>> CopyOf(const char* source) {
  const size_t size = std::strlen(source);
  if (size > XML::kLongest) return std::nullopt;
  Z<char> text(size + XML::kSlack);
  std::memcpy(text, source, size);
  return text;
}

// The size of an open file; none for what is not one that can be read whole.
std::optional<size_t> SizeOf(FILE* file) {
  struct stat status {};
  if (fstat(fileno(file), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  if (static_cast<uint64_t>(status.st_size) > XML::kLongest) return std::nullopt;
  return static_cast<size_t>(status.st_size);
}

}  // namespace

XML::XML() {
  Clear();
}

XML::XML(const char* source, int mode, XMLTransform* transform, void* data) {
  Load(source, mode, transform, data);
}

XML::XML(const XML& other) {
  *this = other;
}

XML& XML::operator=(const XML& other) {
  if (this == &other) return *this;
  m_status = other.m_status;
  m_position = other.m_position;
  m_fileName = other.m_fileName;
  m_hasFileName = other.m_hasFileName;
  m_hasDefaultRoot = other.m_hasDefaultRoot;
  OwnHeader(std::unique_ptr<XMLHeader>(other.m_header->Duplicate()));
  OwnRoot(other.m_root ? other.m_root->Copy() : nullptr);
  return *this;
}

XML::~XML() {
  if (m_saveOnClose) Save();
}

void XML::Clear() {
  if (m_saveOnClose) Save();
  m_status = 0;
  m_position = 0;
  m_fileName.clear();
  m_hasFileName = false;
  OwnHeader(std::make_unique<XMLHeader>(kDeclaration));
  UseDefaultRoot("xml");
}

bool XML::Load(const char* source, int mode, XMLTransform* transform, void* data) {
  std::string path;
  std::optional<Z<char>> text;
  if (source && mode == 0) path = source;
  if (source && mode != 0) text = CopyOf(source);
  Clear();
  if (source && mode == 0) {
    m_fileName = std::move(path);
    m_hasFileName = !transform;
    text = ReadToZ(m_fileName.c_str(), transform, data);
  }
  if (text) Parse(std::move(*text));
  return true;
}

bool XML::LoadText(Z<char> text) {
  Clear();
  Parse(std::move(text));
  return true;
}

bool XML::LoadText(const wchar_t* text) {
  if (!text) return Load(nullptr, 1);
  Z<char> bytes(std::wcslen(text) * 4 + 1000);
  if (std::wcstombs(bytes, text, bytes.size() - 1) == static_cast<size_t>(-1)) return Load(nullptr, 1);
  return Load(bytes, 1);
}

std::optional<Z<char>> XML::ReadToZ(const char* path, XMLTransform* transform, void* data) {
  const std::unique_ptr<FILE, CloseFile> file(std::fopen(path, "rb"));
  const std::optional<size_t> size = file ? SizeOf(file.get()) : std::nullopt;
  if (!size) return std::nullopt;
  Z<char> text(*size + kSlack);
  if (std::fread(text, 1, *size, file.get()) != *size && std::ferror(file.get())) return std::nullopt;
  if (!transform) return text;
  Z<char> decoded(*size + kSlack);
  transform->Decode(text, *size, decoded, *size, data);
  return decoded;
}

void XML::Parse(Z<char> text) {
  const auto arena = std::make_shared<XmlArena>(std::move(text));
  const char* const begin = arena->text();
  const size_t size = std::strlen(begin);
  if (size == 0) return;
  std::string_view body(begin, size);
  const size_t close = body.find("?>");
  if (close == std::string_view::npos) {
    m_hasFileName = false;
    m_status = 1;
    OwnHeader(std::make_unique<XMLHeader>(std::string("\xEF\xBB\xBF") + kDeclaration));
  } else {
    OwnHeader(std::make_unique<XMLHeader>(body.substr(0, close + 2)));
    body.remove_prefix(close + 2);
  }
  const size_t first = body.find('<');
  if (first == std::string_view::npos) {
    m_hasFileName = false;
    m_status = 1;
    UseDefaultRoot("root");
    return;
  }
  const XmlParsed parsed = ParseXml(arena, body.data() + first, body.data() + body.size());
  for (const XMLComment* comment : parsed.comments) m_header->AddComment(comment->Duplicate());
  OwnRoot(parsed.root);
  m_hasDefaultRoot = false;
  if (parsed.unclosed) m_status = 2;
  m_position = static_cast<int>(std::min<size_t>(parsed.stopped, INT_MAX));
}

void XML::UseDefaultRoot(std::string_view name) {
  OwnRoot(new XMLElement(nullptr, name));
  m_hasDefaultRoot = true;
}

int XML::ParseStatus(int* position) const {
  if (position) *position = m_position;
  return m_status;
}

XMLElement* XML::SetRootElement(XMLElement* root) {
  m_hasDefaultRoot = false;
  if (root == m_root.get()) return root;
  if (root && root->m_name.listed && !root->Leave()) return m_root.get();
  if (root) root->SetParent(nullptr);
  OwnRoot(root);
  return root;
}

void XML::OwnRoot(XMLElement* root) {
  m_root.reset(root);
  if (root) root->m_name.listed = true;
}

XMLElement* XML::RemoveRootElementAndKeep() {
  if (m_root) m_root->m_name.listed = false;
  return m_root.release();
}

XMLHeader* XML::SetHeader(XMLHeader* header) {
  if (header && !header->m_isOwned) OwnHeader(std::unique_ptr<XMLHeader>(header));
  return m_header.get();
}

void XML::OwnHeader(std::unique_ptr<XMLHeader> header) {
  m_header = std::move(header);
  m_header->m_isOwned = true;
}

// --- the header ---

XMLHeader::XMLHeader(std::string_view text) : m_text(text) {}

XMLHeader::~XMLHeader() {
  for (XMLComment* comment : m_comments) delete comment;
}

void XMLHeader::SetEncoding(std::string_view encoding) {
  m_text = "<?xml version=\"1.0\" encoding=\"" + std::string(encoding) + "\" standalone=\"yes\" ?>";
}

unsigned XMLHeader::AddComment(XMLComment* comment) {
  if (comment && !comment->m_text.listed) {
    m_comments.Append(comment);
    comment->m_text.listed = true;
  }
  return m_comments.size();
}

XMLHeader* XMLHeader::Duplicate() const {
  auto* copy = new XMLHeader(m_text);
  for (const XMLComment* comment : m_comments) copy->AddComment(comment->Duplicate());
  return copy;
}

size_t XMLHeader::MemoryUsage() const {
  size_t bytes = sizeof(*this) + m_text.size() + m_comments.bytes();
  for (const XMLComment* comment : m_comments) bytes += comment->MemoryUsage();
  return bytes;
}

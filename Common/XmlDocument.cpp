#include <algorithm>
#include <cstdio>
#include <memory>

#include "Common/Xml.h"
#include "Common/XmlParser.h"

namespace {

constexpr const char* kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>";

struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};

// The whole file, empty when it cannot be read.
std::string ReadWhole(const char* path) {
  std::string text;
  const std::unique_ptr<FILE, CloseFile> file(path ? std::fopen(path, "rb") : nullptr);
  if (!file) return text;
  size_t size = 0;
  constexpr size_t kStep = 1 << 16;
  do {
    text.resize(size + std::max(kStep, size));
    const size_t read = std::fread(text.data() + size, 1, text.size() - size, file.get());
    if (read == 0) break;
    size += read;
  } while (true);
  text.resize(size);
  return text.c_str();  // a document ends at its first NUL
}

}  // namespace

XML::XML(const char* source, int mode) {
  m_text = mode == 0 ? ReadWhole(source) : std::string(source ? source : "");
  if (m_text.empty()) {
    m_header = kDeclaration;
    UseDefaultRoot("xml");
  } else {
    Parse();
  }
}

XML::~XML() = default;

void XML::Parse() {
  std::string_view body = m_text;
  const size_t end = body.find("?>");
  if (end == std::string_view::npos) {
    m_status = 1;
    m_header = std::string("\xEF\xBB\xBF") + kDeclaration;
  } else {
    m_header = body.substr(0, end + 2);
    body.remove_prefix(end + 2);
  }
  const size_t first = body.find('<');
  if (first == std::string_view::npos) {
    m_status = 1;
    UseDefaultRoot("root");
    return;
  }
  m_root = XmlParser(*this).Parse(body.substr(first));
}

void XML::UseDefaultRoot(const char* tag) {
  m_root = NewElement(nullptr, tag);
  m_defaultRoot = true;
}

XMLElement* XML::NewElement(XMLElement* parent, std::string_view tag) {
  m_elements.push_back(std::make_unique<XMLElement>(parent, tag));
  return m_elements.back().get();
}

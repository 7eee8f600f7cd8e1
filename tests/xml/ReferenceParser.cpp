#include "tests/xml/ReferenceParser.h"

#include <algorithm>
#include <memory>

#include "tests/xml/Dump.h"

namespace {

constexpr size_t kNone = std::string_view::npos;

// Behind the matching closing tag, kNone without one.
size_t FindClose(std::string_view text) {
  int depth = 0;
  size_t at = 0;
  while ((at = text.find('<', at)) != kNone) {
    if (text.substr(at, 2) == "</") {
      at = text.find('>', at);
      if (at == kNone) return kNone;
      ++at;
      if (depth == 1) return at;
      --depth;
      continue;
    }
    if (text.substr(at, 9) == "<![CDATA[") {
      at = text.find("]]>", at);
      if (at == kNone) return kNone;
      at += 3;
      continue;
    }
    const bool comment = text.substr(at, 4) == "<!--" || text.substr(at, 2) == "<?";
    bool quoted = false;
    for (++at; at < text.size() && text[at] != '>' && (comment || quoted || text[at] != '/'); ++at) {
      if (text[at] == '"') quoted = !quoted;
    }
    if (at == text.size()) return kNone;
    if (!comment && text[at] == '>') ++depth;
    ++at;
  }
  return kNone;
}

class Reference {
 public:
  XMLElement* Level(XMLElement* parent, std::string_view text) {
    XMLElement* recorded = nullptr;
    size_t at = 0;
    size_t tag = 0;
    while ((tag = text.find('<', at)) != kNone) {
      AddRun(parent, text.substr(at, tag - at));
      const bool cdata = text.substr(tag, 9) == "<![CDATA[";
      size_t end = cdata ? text.find("]]>", tag) : text.find('>', tag);
      if (end == kNone) return recorded;
      if (cdata) end += 2;
      const std::string_view whole = text.substr(tag, end + 1 - tag);
      at = end + 1;
      if (whole.starts_with("<!--") || whole.starts_with("<?")) {
        if (parent) parent->AddComment(whole.size() > 7 ? whole.substr(4, whole.size() - 7) : "", Position(parent));
      } else if (cdata) {
        if (parent) parent->AddCData(whole.substr(9, whole.size() - 12), Position(parent));
      } else if (whole.starts_with("</")) {
        if (recorded && parent && parent->FindElement(recorded) < 0) parent->AddElement(recorded);
      } else if (whole.ends_with("/>")) {
        auto* element = Make(parent, whole);
        if (parent) parent->AddElement(element);
        if (!recorded) recorded = element;
      } else {
        const size_t close = FindClose(text.substr(tag));
        if (close == kNone) {
          status = 2;
          return recorded;
        }
        const size_t closing = text.rfind("</", tag + close - 1);
        recorded = Make(parent, whole);
        if (closing > at) Level(recorded, text.substr(at, closing - at));
        at = std::max(closing, at);
      }
    }
    AddRun(parent, text.substr(at));
    return recorded;
  }

  int status = 0;

 private:
  static unsigned Position(const XMLElement* parent) { return parent->GetChildrenNum(); }
  static void AddRun(XMLElement* parent, std::string_view run) {
    const size_t begin = run.find_first_not_of(" \t\r\n");
    if (!parent || begin == kNone) return;
    parent->AddContent(run.substr(begin, run.find_last_not_of(" \t\r\n") + 1 - begin), Position(parent), true);
  }
  // Elements that end in no tree are leaked on purpose only while the test runs: the top ones are kept here.
  XMLElement* Make(XMLElement* parent, std::string_view tag) {
    auto* element = new XMLElement(parent, tag);
    if (!parent) m_tops.emplace_back(element);
    return element;
  }
  std::vector<std::unique_ptr<XMLElement>> m_tops;
};

}  // namespace

std::pair<std::string, int> ParseByReference(std::string_view body) {
  Reference reference;
  const XMLElement* root = reference.Level(nullptr, body);
  return {Dump(root), reference.status};
}

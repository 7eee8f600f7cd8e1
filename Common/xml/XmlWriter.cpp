#include "Common/xml/XmlWriter.h"

#include <algorithm>
#include <memory>

#include "Common/xml/XmlDocument.h"

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr size_t kFlushAt = 1 << 16;
constexpr uint64_t kBeyondCounting = uint64_t{1} << 62;

// Whether text of that size can follow what is in `out`, and be part of a document.
bool Fits(const std::string& out, uint64_t size) {
  return size <= XML::kLongest && size <= out.max_size() - out.size();
}

}  // namespace

// --- elements ---

void XmlWriter::Write(const XMLElement& top, unsigned deep, bool formatting) {
  m_deep = deep;
  m_formatting = formatting;
  Open(top);
  while (!m_levels.empty() && !m_failed) Step();
}

uint64_t XmlWriter::SizeOf(const XMLElement& top, unsigned deep, bool formatting) {
  XmlWriter counter;
  counter.Write(top, deep, formatting);
  return counter.m_size;
}

void XmlWriter::Line(std::string_view before, std::string_view text, std::string_view after) {
  for (const std::string_view part : {before, text, after, kLineEnd}) Put(part);
}

void XmlWriter::Put(std::string_view text) {
  if (!m_out) return Count(text.size());
  m_out->append(text);
  FlushIfMuch();
}

void XmlWriter::PutRepeated(char c, uint64_t times) {
  if (!m_out) return Count(times);
  while (times > 0) {
    const size_t part = static_cast<size_t>(std::min<uint64_t>(times, kFlushAt));
    m_out->append(part, c);
    times -= part;
    FlushIfMuch();
  }
}

void XmlWriter::Count(uint64_t bytes) {
  m_size = std::min(m_size + std::min(bytes, kBeyondCounting), kBeyondCounting);
}

void XmlWriter::FlushIfMuch() {
  if (m_stream && m_out->size() > kFlushAt) Flush();
}

bool XmlWriter::Flush() {
  if (m_stream && std::fwrite(m_out->data(), 1, m_out->size(), m_stream) != m_out->size()) m_failed = true;
  if (m_stream) m_out->clear();
  return !m_failed;
}

void XmlWriter::Indent(const XMLElement& element, uint64_t levels) {
  if (!m_formatting) return;
  const auto [spaces, count] = element.GetExportFormatting();
  PutRepeated(spaces ? ' ' : '\t', std::min(levels, kBeyondCounting / std::max(count, 1U)) * count);
}

std::vector<XmlWriter::Text> XmlWriter::TextsOf(const XMLElement& element) {
  std::vector<Text> texts;
  const auto add = [&texts](auto** nodes, unsigned count, std::string_view before, std::string_view after) {
    for (unsigned i = 0; i < count; ++i) {
      if (nodes[i]) texts.push_back({nodes[i], before, after});
    }
  };
  add(element.GetContents(), element.GetContentsNum(), "", "");
  add(element.GetComments(), element.GetCommentsNum(), "<!--", "-->");
  add(element.GetCDatas(), element.GetCDatasNum(), "<![CDATA[", "]]>");
  std::sort(texts.begin(), texts.end(), [](const Text& a, const Text& b) { return a.node->StandsBefore(*b.node); });
  return texts;
}

// Writes the start tag; an element with something in it becomes the innermost level.
void XmlWriter::Open(const XMLElement& element) {
  Indent(element, m_deep + m_levels.size());
  Put("<");
  Put(element.name());
  for (unsigned i = 0; i < element.GetVariableNum(); ++i) {
    const XMLVariable* variable = element.GetVariables()[i];
    if (!variable) continue;
    for (const std::string_view part : {std::string_view(" "), variable->name(), std::string_view("=\""),
                                        variable->value(), std::string_view("\"")}) {
      Put(part);
    }
  }
  std::vector<Text> texts = TextsOf(element);
  if (texts.empty() && element.GetChildrenNum() == 0) {
    Line("", "", "/>");
    return;
  }
  Line("", "", ">");
  m_levels.push_back({&element, std::move(texts)});
}

// Writes the innermost level's next text, child or closing tag.
void XmlWriter::Step() {
  Level& level = m_levels.back();
  const XMLElement& element = *level.element;
  const bool hasChild = level.nextChild < element.GetChildrenNum();
  if (level.nextText < level.texts.size()) {
    const Text& text = level.texts[level.nextText];
    if (!hasChild || text.node->GetEP() <= level.nextChild) {
      Indent(element, m_deep + m_levels.size());
      Line(text.before, text.node->text(), text.after);
      ++level.nextText;
      return;
    }
  }
  if (hasChild) {
    const XMLElement* child = element.GetChildren()[level.nextChild++];
    if (child) Open(*child);
    return;
  }
  Indent(element, m_deep + m_levels.size() - 1);
  Line("</", element.name(), ">");
  m_levels.pop_back();
}

void XMLElement::SetExportFormatting(bool spaces, unsigned count) {
  Rare& rare = MakeRare();
  rare.spaces = spaces;
  rare.indentCount = count;
}

std::pair<bool, unsigned> XMLElement::GetExportFormatting() const {
  return m_rare ? std::pair(m_rare->spaces, m_rare->indentCount) : std::pair(false, 1U);
}

bool XMLElement::Export(std::string& out, unsigned deep, bool formatting) const {
  const uint64_t size = XmlWriter::SizeOf(*this, deep, formatting);
  if (!Fits(out, size)) return false;
  out.reserve(out.size() + static_cast<size_t>(size));
  XmlWriter(out).Write(*this, deep, formatting);
  return true;
}

bool XMLElement::Export(FILE* stream, unsigned deep, bool formatting) const {
  if (XmlWriter::SizeOf(*this, deep, formatting) > XML::kLongest) return false;
  std::string gathered;
  XmlWriter writer(gathered, stream);
  writer.Write(*this, deep, formatting);
  return writer.Flush();
}

bool XMLElement::printc(FILE* stream, const XMLElement* element, unsigned deep, bool formatting) {
  return element && element->Export(stream, deep, formatting);
}

// --- headers and documents ---

void XMLHeader::Export(std::string& out, int part) const {
  if (part == 0) XmlWriter(out).Line("", m_text, "");
  ExportComments(out, part == 0 ? 0 : 1);
}

void XMLHeader::ExportComments(std::string& out, unsigned position) const {
  for (const XMLComment* comment : m_comments) {
    if (std::min(comment->GetEP(), 1U) == position) XmlWriter(out).Line("<!--", comment->text(), "-->");
  }
}

bool XMLHeader::Export(FILE* stream, int part) const {
  std::string out;
  Export(out, part);
  return XmlWriter(out, stream).Flush();
}

bool XML::Export(std::string& out, bool formatting) const {
  const size_t before = out.size();
  m_header->Export(out, 0);
  const bool whole = !m_root || m_root->Export(out, 0, formatting);
  if (whole) m_header->Export(out, 1);
  if (!whole) out.resize(before);
  return whole;
}

bool XML::Export(FILE* stream, bool formatting) const {
  if (m_root && XmlWriter::SizeOf(*m_root, 0, formatting) > kLongest) return false;
  const bool start = m_header->Export(stream, 0);
  const bool tree = !m_root || m_root->Export(stream, 0, formatting);
  return m_header->Export(stream, 1) && tree && start;
}

void XML::SetExportFormatting(bool spaces, unsigned count) {
  if (!m_root) return;
  m_root->SetExportFormatting(spaces, count);
  for (XMLElement* element : m_root->GetAllChildren()) element->SetExportFormatting(spaces, count);
}

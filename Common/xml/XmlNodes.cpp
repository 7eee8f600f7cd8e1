#include "Common/xml/XmlNodes.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>

#include "Common/StringUtil.h"
#include "Common/xml/XmlDocument.h"
#include "Common/xml/XmlText.h"

void XmlText::Set(std::string_view text) {
  text = text.substr(0, std::min<size_t>(text.size(), UINT32_MAX));
  char* copy = new char[text.size() + 1];
  std::copy(text.begin(), text.end(), copy);
  copy[text.size()] = '\0';
  Release();
  m_data = copy;
  m_size = static_cast<uint32_t>(text.size());
  m_owned = true;
}

void GivePages(const void* data, size_t size) {
  constexpr uintptr_t kPage = 4096;
  constexpr size_t kWorthwhile = 1024 * 1024;
  if (size < kWorthwhile) return;
  const uintptr_t begin = reinterpret_cast<uintptr_t>(data) & ~(kPage - 1);
  const uintptr_t end = (reinterpret_cast<uintptr_t>(data) + size) & ~(kPage - 1);
  madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE);
}

void* XmlArena::TakeBlock(size_t size) {
  // What is larger than a quarter of a block gets one of its own, so that the rest of the current one is not lost.
  const bool isLarge = size > m_blockSize / 4;
  const size_t blockSize = isLarge ? size : m_blockSize;
  m_blocks.emplace_back(new char[blockSize]);
  m_bytes += blockSize;
  char* block = m_blocks.back().get();
  GivePages(block, blockSize);
  if (isLarge) return block;
  m_next = block + size;
  m_end = block + blockSize;
  return block;
}

std::string_view XmlArena::Keep(std::string_view text) {
  char* copy = static_cast<char*>(Take(text.size()));
  std::memcpy(copy, text.data(), text.size());
  return {copy, text.size()};
}

// --- attributes ---

XMLVariable::XMLVariable(std::string_view name, std::string_view value, bool raw) {
  SetName(name, raw);
  SetValue(value, raw);
}

size_t XMLVariable::GetName(char* buffer, size_t size, bool raw) const {
  return raw ? xmltext::CopyOut(name(), buffer, size) : XML::XMLDecode(name(), buffer, size);
}

size_t XMLVariable::GetValue(char* buffer, size_t size, bool raw) const {
  return raw ? xmltext::CopyOut(value(), buffer, size) : XML::XMLDecode(value(), buffer, size);
}

std::string XMLVariable::GetName(bool raw) const {
  return raw ? std::string(name()) : XML::XMLDecode(name());
}

std::string XMLVariable::GetValue(bool raw) const {
  return raw ? std::string(value()) : XML::XMLDecode(value());
}

int32_t XMLVariable::GetValueInt() const {
  return CStringUtil::ToInt(GetValue().c_str());
}

void XMLVariable::SetName(std::string_view name, bool raw) {
  m_name.Set(raw ? name : XML::XMLEncode(name));
  if (m_owner) m_owner->Touch();
}

void XMLVariable::SetValue(std::string_view value, bool raw) {
  m_value.Set(raw ? value : XML::XMLEncode(value));
  if (m_owner) m_owner->Touch();
}

void XMLVariable::SetValueInt(int32_t value) {
  SetValue(std::to_string(value), true);
}

void XMLVariable::Clear() {
  m_name.Borrow("");
  m_value.Borrow("");
}

XMLVariable* XMLVariable::Duplicate() const {
  return new XMLVariable(name(), value(), true);
}

XMLVariable* XMLVariable::Copy() const {
  XMLVariable* copy = Duplicate();
  copy->m_owner = m_owner;
  return copy;
}

bool XMLVariable::Compare(const XMLVariable& other) const {
  return name() == other.name() && value() == other.value();
}

void XMLVariable::SetOwnerElement(XMLElement* owner) {
  if (m_owner) m_owner->Touch();
  if (owner) owner->Touch();
  m_owner = owner;
}

// --- texts ---

XMLTextNode::XMLTextNode(XMLElement* owner, unsigned position, std::string_view text)
    : m_owner(owner), m_position(position) {
  m_text.Set(text);
}

void XMLTextNode::SetParent(XMLElement* owner, unsigned position) {
  if (m_owner) m_owner->Touch();
  if (owner) owner->Touch();
  m_owner = owner;
  m_position = position;
}

void XMLTextNode::Store(std::string_view text) {
  m_text.Set(text);
  if (m_owner) m_owner->Touch();
}

size_t XMLTextNode::Read(char* buffer, size_t size) const {
  return xmltext::CopyOut(text(), buffer, size);
}

bool XMLTextNode::IsSame(const XMLTextNode& other) const {
  return m_position == other.m_position && text() == other.text();
}

XMLContent::XMLContent(XMLElement* owner, unsigned position, std::string_view text, bool raw)
    : XMLTextNode(owner, position, raw ? text : XML::XMLEncode(text)) {}

size_t XMLContent::GetValue(char* buffer, size_t size, bool raw) const {
  return raw ? Read(buffer, size) : XML::XMLDecode(text(), buffer, size);
}

std::string XMLContent::GetValue(bool raw) const {
  return raw ? std::string(text()) : XML::XMLDecode(text());
}

void XMLContent::SetValue(std::string_view text, bool raw) {
  Store(raw ? text : XML::XMLEncode(text));
}

XMLContent* XMLContent::Duplicate() const {
  return new XMLContent(nullptr, m_position, text(), true);
}

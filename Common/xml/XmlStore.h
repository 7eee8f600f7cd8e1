// What the nodes of an XML tree are stored in: scratch arrays, texts, lists of nodes and the memory of a parsed
// document. All of it is used by one thread at a time.
#ifndef QUARVEL_COMMON_XML_XMLSTORE_H
#define QUARVEL_COMMON_XML_XMLSTORE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

// Gives memory that is about to be written its pages at once, which is cheaper than at the first touch of each. Only a
// wish.
void GivePages(const void* data, size_t size);

// An owned, zero-filled array.
template <class T>
class Z {
 public:
  explicit Z(size_t count) : m_items(static_cast<T*>(std::calloc(count ? count : 1, sizeof(T)))), m_count(count) {
    if (!m_items) throw std::bad_alloc();
    GivePages(m_items, count * sizeof(T));
  }
  Z(Z&& other) noexcept : m_items(std::exchange(other.m_items, nullptr)), m_count(std::exchange(other.m_count, 0)) {}
  Z& operator=(Z&& other) noexcept {
    std::swap(m_items, other.m_items);
    std::swap(m_count, other.m_count);
    return *this;
  }
  ~Z() { std::free(m_items); }

  operator T*() const { return m_items; }
  size_t size() const { return m_count; }

 private:
  T* m_items;
  size_t m_count;
};

// A text that is either a copy of its own or borrowed from the document's text. Texts are shorter than 4 GiB.
class XmlText {
 public:
  XmlText() = default;
  ~XmlText() { Release(); }
  XmlText(const XmlText&) = delete;
  XmlText& operator=(const XmlText&) = delete;

  std::string_view view() const { return {m_data, m_size}; }
  void Set(std::string_view text);
  void Borrow(std::string_view text) {
    Release();
    m_data = text.data();
    m_size = static_cast<uint32_t>(text.size());
  }
  size_t bytes() const { return m_owned ? size_t{m_size} + 1 : 0; }

 private:
  void Release() {
    if (m_owned) delete[] m_data;
    m_owned = false;
  }

  const char* m_data = "";
  uint32_t m_size = 0;
  bool m_owned = false;

 public:
  // Marks of the node that holds this text; here, beside the text's own, they cost no memory.
  bool inArena = false;  // the node's memory is not its own
  bool listed = false;   // the node is in its owner's list
  bool touched = false;  // something at or below the node has to be destroyed one by one
};
static_assert(sizeof(XmlText) == sizeof(const char*) + 2 * sizeof(uint32_t));

// An array of pointers to nodes, `Step` of them at least when it first grows. It owns the array, not the nodes. An
// array that is borrowed from an arena is copied before it grows; one of a single node, as most are, is no array at
// all.
template <class T, uint32_t Step>
class XmlList {
 public:
  XmlList() = default;
  ~XmlList() { Release(); }
  XmlList(const XmlList&) = delete;
  XmlList& operator=(const XmlList&) = delete;

  T** data() const { return isSingle() ? &m_single : m_items; }
  uint32_t size() const { return m_count; }
  T* operator[](size_t index) const { return data()[index]; }
  T** begin() const { return data(); }
  T** end() const { return data() + m_count; }
  T* back() const { return m_count ? data()[m_count - 1] : nullptr; }

  void Borrow(T** items, uint32_t count) {
    Release();
    m_items = items;
    m_count = count;
    if (isSingle()) m_single = *items;
  }
  void Insert(uint32_t index, T* item) {
    if (m_count >= m_capacity) Resize(m_count + (m_count / 2 > Step ? m_count / 2 : Step));
    for (uint32_t i = m_count++; i > index; --i) m_items[i] = m_items[i - 1];
    m_items[index] = item;
  }
  void Append(T* item) { Insert(m_count, item); }
  T* Take(uint32_t index) {
    T** items = data();
    T* item = items[index];
    for (uint32_t i = index + 1; i < m_count; ++i) items[i - 1] = items[i];
    if (--m_count == 0) Clear();
    if (isSingle()) m_single = *items;
    return item;
  }
  void Clear() {
    m_count = 0;
    if (m_capacity == 0) m_items = nullptr;
  }
  void Reserve(uint32_t count) {
    if (count > m_capacity && count > m_count) Resize(count);
  }
  void Shrink() {
    if (m_capacity > m_count) Resize(m_count);
  }
  size_t bytes() const { return m_capacity * sizeof(T*); }
  bool ownsArray() const { return m_capacity != 0; }

 private:
  void Resize(uint32_t capacity) {
    T** items = capacity ? new T*[capacity] : nullptr;
    std::copy(begin(), end(), items);
    Release();
    m_items = items;
    m_capacity = capacity;
  }
  void Release() {
    if (m_capacity) delete[] m_items;
    m_items = nullptr;
    m_capacity = 0;
  }

  bool isSingle() const { return m_count == 1 && m_capacity == 0; }

  union {
    T** m_items = nullptr;
    mutable T* m_single;  // the only node, which was borrowed
  };
  uint32_t m_count = 0;
  uint32_t m_capacity = 0;  // 0 while what it holds is borrowed or nothing
};

// The memory of one parsed document: its text and the nodes made from it, given back all at once. Destructors of what
// lies in it are not run.
class XmlArena {
 public:
  explicit XmlArena(Z<char> text)
      : m_text(std::move(text)), m_blockSize(std::clamp(m_text.size() * kNodesPerText, kSmallest, kLargest)) {}

  char* text() const { return m_text; }

  // Uninitialised memory, aligned for any node.
  void* Take(size_t size) {
    size = (size + kAlign - 1) & ~(kAlign - 1);
    if (size > static_cast<size_t>(m_end - m_next)) return TakeBlock(size);
    void* memory = m_next;
    m_next += size;
    return memory;
  }
  std::string_view Keep(std::string_view text);

  size_t bytes() const { return m_bytes + m_text.size(); }

 private:
  static constexpr size_t kAlign = alignof(void*);
  // Nodes take up to four times the memory of the text, so most documents need one block.
  static constexpr size_t kNodesPerText = 4;
  static constexpr size_t kSmallest = 4 * 1024;
  static constexpr size_t kLargest = 4 * 1024 * 1024;

  void* TakeBlock(size_t size);

  Z<char> m_text;
  size_t m_blockSize;
  std::vector<std::unique_ptr<char[]>> m_blocks;
  char* m_next = nullptr;
  char* m_end = nullptr;
  size_t m_bytes = 0;
};

#endif

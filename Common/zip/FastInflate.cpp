#include "Common/zip/FastInflate.h"

#ifdef QUARVEL_ISAL

#include <isa-l/igzip_lib.h>

#include <algorithm>

namespace {

using Inflate = int (*)(inflate_state*);

CFastInflate::Step Advance(inflate_state& state, Inflate inflate, std::span<const uint8_t> packed,
                           std::span<uint8_t> out) {
  const auto clamp = [](size_t size) { return static_cast<uint32_t>(std::min<size_t>(size, UINT32_MAX)); };
  state.next_in = const_cast<uint8_t*>(packed.data());  // it is only read
  state.avail_in = clamp(packed.size());
  state.next_out = out.data();
  state.avail_out = clamp(out.size());
  if (inflate(&state) != ISAL_DECOMP_OK) return {};
  return {static_cast<size_t>(state.next_in - packed.data()), static_cast<size_t>(state.next_out - out.data())};
}

}  // namespace

CFastInflate::CFastInflate() : m_state(std::make_unique_for_overwrite<inflate_state>()) {}

CFastInflate::~CFastInflate() = default;

bool CFastInflate::IsThere() {
  return true;
}

void CFastInflate::Start() {
  isal_inflate_init(m_state.get());
  m_state->crc_flag = ISAL_GZIP_NO_HDR;  // without gzip's header, and with its CRC-32
}

CFastInflate::Step CFastInflate::Run(std::span<const uint8_t> packed, std::span<uint8_t> out) {
  return Advance(*m_state, isal_inflate, packed, out);
}

CFastInflate::Step CFastInflate::RunAtOnce(std::span<const uint8_t> packed, std::span<uint8_t> out) {
  return Advance(*m_state, isal_inflate_stateless, packed, out);
}

bool CFastInflate::EndedWith(uint32_t checksum) const {
  return m_state->block_state == ISAL_BLOCK_FINISH && m_state->crc == checksum;
}

#else

struct inflate_state {};

CFastInflate::CFastInflate() = default;
CFastInflate::~CFastInflate() = default;
bool CFastInflate::IsThere() {
  return false;
}
void CFastInflate::Start() {}
CFastInflate::Step CFastInflate::Run(std::span<const uint8_t>, std::span<uint8_t>) {
  return {};
}
CFastInflate::Step CFastInflate::RunAtOnce(std::span<const uint8_t>, std::span<uint8_t>) {
  return {};
}
bool CFastInflate::EndedWith(uint32_t) const {
  return false;
}

#endif

// Numbers as archives have them: lowest byte first, anywhere in memory.
#ifndef QUARVEL_COMMON_ZIP_LITTLEENDIAN_H
#define QUARVEL_COMMON_ZIP_LITTLEENDIAN_H

#include <cstdint>

inline uint16_t ReadU16(const uint8_t* bytes) {
  return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}
inline uint32_t ReadU32(const uint8_t* bytes) {
  return ReadU16(bytes) | static_cast<uint32_t>(ReadU16(bytes + 2)) << 16;
}
inline uint64_t ReadU64(const uint8_t* bytes) {
  return ReadU32(bytes) | static_cast<uint64_t>(ReadU32(bytes + 4)) << 32;
}

#endif

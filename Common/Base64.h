// Decoding of base64 texts as signatures carry them: on one line, with padding. No state.
#ifndef QUARVEL_COMMON_BASE64_H
#define QUARVEL_COMMON_BASE64_H

class CBase64 {
 public:
  // Decodes up to `length` characters of `in`, or up to its NUL, into `out` and ends them with a NUL; returns the
  // number of bytes before it. `out` needs DecodedSize(length) bytes. A character outside the alphabet counts as zero
  // bits; as the second to fourth of a group it ends the text. Line breaks between groups are skipped but counted in
  // `length`.
  static int Decode(unsigned char* out, const unsigned char* in, int length);

  // Room that `length` characters need at most, with the NUL.
  static constexpr int DecodedSize(int length) { return (length > 0 ? (length + 3) / 4 * 3 : 0) + 1; }
};

#endif

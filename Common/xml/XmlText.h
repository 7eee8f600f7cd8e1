// The syntax inside texts and start tags. No state.
#ifndef QUARVEL_COMMON_XML_XMLTEXT_H
#define QUARVEL_COMMON_XML_XMLTEXT_H

#include <string>
#include <string_view>

namespace xmltext {

// Whether a stored text reads as `wanted`.
bool ReadsAs(std::string_view stored, std::string_view wanted);
// The decoded text into `out`.
void Read(std::string_view stored, std::string& out);
// At most `size` bytes of `text` with the NUL; returns the whole length.
size_t CopyOut(std::string_view text, char* buffer, size_t size);

// Takes the name off the front of a start tag's text; `plain` tells whether it can be stored as it stands.
std::string_view TakeName(std::string_view& tag, bool* plain);
// What is stored for a name that is not plain.
std::string StoredName(std::string_view name);
// Takes the next attribute off the text behind a name; false at the end.
bool TakeVariable(std::string_view& tag, std::string_view& name, std::string_view& value);

}  // namespace xmltext

#endif

// Settings kept as attributes in an XML file. `section` is a path of element names below the root, parted by
// backslashes, empty for the root itself; `key` is an attribute of its last element. Without a document the file is
// loaded for the call. No state of its own: calls for different files and documents may come from different threads.
#ifndef QUARVEL_COMMON_XML_XMLPROFILE_H
#define QUARVEL_COMMON_XML_XMLPROFILE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Common/xml/XmlDocument.h"

// The attribute, or `otherwise` when file, element or attribute is missing, cut to `size` bytes with the NUL; returns
// the length written.
size_t XMLGetString(std::string_view section, std::string_view key, const char* otherwise, char* out, size_t size,
                    const char* file, XML* document = nullptr);
// `otherwise` goes through an unsigned decimal text and back: a negative one comes back as the largest number.
int32_t XMLGetInt(std::string_view section, std::string_view key, int32_t otherwise, const char* file,
                  XML* document = nullptr);
float XMLGetFloat(std::string_view section, std::string_view key, float otherwise, const char* file,
                  XML* document = nullptr);

// Set the attribute, making what is missing, and save the file; a document given without a file saves itself. False
// when it cannot be saved, and for a file that cannot be read to its end, which stays as it is.
bool XMLSetString(std::string_view section, std::string_view key, std::string_view value, const char* file,
                  XML* document = nullptr);
bool XMLSetInt(std::string_view section, std::string_view key, int32_t value, const char* file,
               XML* document = nullptr);
bool XMLSetFloat(std::string_view section, std::string_view key, float value, const char* file,
                 XML* document = nullptr);
// Renames a child of the addressed element and saves the file; false when there is none.
bool XMLRenameElement(std::string_view section, std::string_view from, std::string_view to, const char* file,
                      XML* document = nullptr);

// The attributes, or the names of the child elements, of the addressed element; return their number.
size_t XMLGetAllVariables(std::string_view section, std::vector<std::string>& names, std::vector<std::string>& values,
                          const char* file);
size_t XMLGetAllItems(std::string_view section, std::vector<std::string>& names, const char* file);

#endif

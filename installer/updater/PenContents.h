// What a pen holds, as values: what the install decisions are made from. Everything that the pen library writes is
// read through FieldText, which never runs past a field.
#ifndef QUARVEL_INSTALLER_UPDATER_PENCONTENTS_H
#define QUARVEL_INSTALLER_UPDATER_PENCONTENTS_H

#include <cstring>
#include <map>
#include <string>

#include "platform/Tessvik.h"

// The text of a record's field, up to its NUL or its end.
template <size_t kSize>
std::string FieldText(const char (&field)[kSize]) {
  return std::string(field, strnlen(field, kSize));
}

// A view: the strings and records stay their owner's.
struct PenContents {
  const std::string& fwVersion;                      // for example "8.9.15.b2"
  const std::map<std::string, PenletInfo>& penlets;  // by GUID
};

#endif

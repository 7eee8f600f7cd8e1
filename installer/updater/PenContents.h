// What a pen holds, as values, and the reading of it. The install decisions are made from the values. Everything that
// the pen library writes is read through FieldText, which never runs past a field.
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

// Has the pen library read the pen anew, over the given channel or, for 0, over one of its own.
bool RefreshPenOver(int32_t channel, int32_t penHandle);
// What it read. Penlets that are not there or cannot be read are left out.
bool ReadFirmwareVersion(int32_t penHandle, std::string* fwVersion);
bool ReadPenlets(int32_t penHandle, std::map<std::string, PenletInfo>* penlets);

#endif

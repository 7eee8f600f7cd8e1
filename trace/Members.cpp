#include "trace/Members.h"

#include <limits.h>
#include <sys/stat.h>

namespace trace {
namespace {

template <size_t kSize>
void TellField(Line& line, const char* name, const char (&field)[kSize]) {
  line.Text(name, field, kSize);
}

}  // namespace

void TellNull(Line& line, const char* name, const void* pointer) {
  if (!pointer) line.Null(name);
}

void TellFile(Line& line, const char* file) {
  struct stat status {};
  line.Text("file", file, PATH_MAX);
  if (file && stat(file, &status) == 0) line.Number("bytes", status.st_size);
}

void TellTransfer(Line& line, int32_t channel, const void* buffer, int32_t bufferSize, pcProgressFunction progress) {
  line.Number("channel", channel).Number("bufferSize", bufferSize);
  TellNull(line, "buffer", buffer);
  line.Flag("progress", progress != nullptr);
}

void TellItem(Line& line, const PenletInfo& item) {
  TellField(line, "guid", item.guid);
  TellField(line, "name", item.name);
  TellField(line, "displayName", item.displayName);
  TellField(line, "version", item.version);
  line.Number("build", item.buildNumber).Number("present", item.present);
  TellField(line, "group", item.groupName);
  TellField(line, "groupVersion", item.groupVersion);
  line.Unsigned("firstId", item.firstId).Unsigned("secondId", item.secondId);
}

void TellAttributes(Line& line, const PenletAttribute* attributes, int32_t count) {
  constexpr int32_t most = 256;
  line.Number("count", count);
  if (!attributes) {
    line.Null("attributes");
    return;
  }
  line.OpenArray("attributes");
  for (int32_t i = 0; i < count && i < most; ++i) {
    line.OpenObject(nullptr).Number("number", attributes[i].id);
    TellField(line, "value", attributes[i].value);
    line.Close();
  }
  line.Close();
}

void TellHandles(Line& line, const int32_t* handles, int32_t capacity, int32_t count) {
  constexpr int32_t most = 256;
  if (!handles) return;
  line.OpenArray("handles");
  for (int32_t i = 0; i < count && i < capacity && i < most; ++i) line.Number(nullptr, handles[i]);
  line.Close();
}

void TellVersion(Line& line, const PenVersionInfo& info) {
  TellField(line, "version", info.firmwareVersion);
  TellField(line, "suffix", info.versionSuffix);
}

}  // namespace trace

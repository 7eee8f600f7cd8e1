#include "simulator/Image.h"

#include <sys/stat.h>

#include <fstream>
#include <map>
#include <string_view>

#include "simulator/Problem.h"

namespace sim {
namespace {

using Head = std::map<std::string, std::string>;

constexpr std::streamsize kLongestHead = 4096;

// The head's lines; throws `error` when it is not as it must be.
Head ReadHead(const char* file, std::string_view kind, int32_t error) {
  std::ifstream in(file ? file : "", std::ios::binary);
  if (!in) throw Problem(pbErrFile);
  std::string text(kLongestHead, '\0');
  in.read(text.data(), kLongestHead);
  text.resize(static_cast<size_t>(in.gcount()));
  std::string_view rest = text;
  const auto nextLine = [&] {
    const size_t end = rest.find('\n');
    if (end == std::string_view::npos) throw Problem(error);
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return line;
  };
  if (nextLine() != kind) throw Problem(error);
  Head head;
  for (std::string_view line = nextLine(); !line.empty(); line = nextLine()) {
    const size_t mark = line.find(": ");
    if (mark == std::string_view::npos) throw Problem(error);
    head.emplace(line.substr(0, mark), line.substr(mark + 2));
  }
  return head;
}

uint64_t SizeOf(const char* file) {
  struct stat status {};
  return stat(file, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

}  // namespace

Image ReadApp(const char* file) {
  const Head head = ReadHead(file, "TESSVIK-APP 1", pbErrNotApp);
  if (!head.contains("guid") || !head.contains("version")) throw Problem(pbErrNotApp);
  Json json = Json::object();
  for (const auto& [key, value] : head) {
    if (key != "build") json[key] = value;
  }
  Image image;
  image.size = SizeOf(file);
  json["size"] = image.size;
  try {
    if (head.contains("build")) json["build"] = std::stoi(head.at("build"));
    image.penlet = PenletFromJson(json);
  } catch (const Problem& problem) {
    throw Problem(problem.error() == pbErrPenFile ? int32_t{pbErrNotApp} : problem.error());
  } catch (const std::exception&) {
    throw Problem(pbErrNotApp);
  }
  return image;
}

Image ReadFirmware(const char* file) {
  const Head head = ReadHead(file, "TESSVIK-FIRMWARE 1", pbErrNotFirmware);
  if (!head.contains("version") || !ParseFirmware(head.at("version"))) throw Problem(pbErrNotFirmware);
  Image image;
  image.firmware = head.at("version");
  image.size = SizeOf(file);
  return image;
}

}  // namespace sim

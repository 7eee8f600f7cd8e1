// The commands of tessvik-sim, over the simulator's control functions. Each returns the exit status; a wrong argument
// is thrown as std::invalid_argument with one sentence.
#ifndef QUARVEL_SIMULATOR_TOOL_COMMANDS_H
#define QUARVEL_SIMULATOR_TOOL_COMMANDS_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace simtool {

using Json = nlohmann::ordered_json;

struct Arguments {
  std::string id;
  int32_t type = 1;
  std::string name;
  std::string firmware;
  std::vector<std::string> penlets;
  std::vector<std::string> settings;
  bool json = false;
  std::string function;
  int32_t call = 0;
  int32_t error = 115;
  std::string faultPen;
  bool clear = false;
  std::string file;
  std::string fault;
  bool strict = false;
};

int AddPen(const Arguments& arguments);
int ListPens(const Arguments& arguments);
int ShowPen(const Arguments& arguments);
int RemovePen(const Arguments& arguments);
int PlugPen(const Arguments& arguments);
int UnplugPen(const Arguments& arguments);
int SetPen(const Arguments& arguments);
int SetFault(const Arguments& arguments);
int SetTrace(const Arguments& arguments);
int Replay(const Arguments& arguments);

// Every setting with its default and meaning, for --help.
std::string SettingsHelp();

// Under --json what goes wrong is an object on standard output too.
void WantJson(bool json);
// One sentence to standard error, which may be unwritable.
void Complain(int status, const std::string& sentence);

// The exit status for what a control function returned; tells the problem.
int Finish(int32_t error);

}  // namespace simtool

#endif

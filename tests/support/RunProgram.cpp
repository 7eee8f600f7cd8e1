#include "tests/support/RunProgram.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "tests/support/TempFolder.h"

extern char** environ;

namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// The test's environment with the additions in front, where they win.
std::vector<std::string> Environment(const std::map<std::string, std::string>& additions) {
  std::vector<std::string> result;
  for (const auto& [name, value] : additions) result.push_back(name + "=" + value);
  for (char** entry = environ; *entry; ++entry) {
    std::string text = *entry;
    if (!additions.contains(text.substr(0, text.find('=')))) result.push_back(std::move(text));
  }
  return result;
}

// The program's three streams as files: no pipe can fill up, whatever it writes and in whatever order.
class Redirections {
 public:
  explicit Redirections(const TempFolder& folder) {
    posix_spawn_file_actions_init(&m_actions);
    Add(STDIN_FILENO, folder / "in", O_RDONLY);
    Add(STDOUT_FILENO, folder / "out", O_WRONLY | O_CREAT | O_TRUNC);
    Add(STDERR_FILENO, folder / "err", O_WRONLY | O_CREAT | O_TRUNC);
  }
  ~Redirections() { posix_spawn_file_actions_destroy(&m_actions); }
  Redirections(const Redirections&) = delete;
  Redirections& operator=(const Redirections&) = delete;
  const posix_spawn_file_actions_t* get() const { return &m_actions; }

 private:
  void Add(int stream, const std::string& file, int flags) {
    posix_spawn_file_actions_addopen(&m_actions, stream, file.c_str(), flags, 0600);
  }
  posix_spawn_file_actions_t m_actions;
};

}  // namespace

ProgramResult RunProgram(const std::vector<std::string>& arguments, const ProgramInput& input) {
  TempFolder folder;
  folder.Write("in", input.stdinText);
  Redirections redirections(folder);
  std::vector<std::string> argumentTexts = arguments;
  std::vector<std::string> environmentTexts = Environment(input.environment);
  pid_t child = 0;
  int error = posix_spawn(&child, arguments.at(0).c_str(), redirections.get(), nullptr, Pointers(argumentTexts).data(),
                          Pointers(environmentTexts).data());
  if (error != 0) throw std::runtime_error("cannot start " + arguments[0]);
  int status = 0;
  if (waitpid(child, &status, 0) != child) throw std::runtime_error("cannot wait for " + arguments[0]);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), ReadWholeFile(folder / "out"),
          ReadWholeFile(folder / "err")};
}

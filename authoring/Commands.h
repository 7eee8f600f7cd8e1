// The commands of quarvel-bundle. Each Add function gives the program its subcommands; their callbacks throw Failure,
// and CLI::RuntimeError with the exit status when a check that ran did not pass.
#ifndef QUARVEL_AUTHORING_COMMANDS_H
#define QUARVEL_AUTHORING_COMMANDS_H

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "authoring/Signing.h"

namespace authoring {

void AddMakingCommands(CLI::App& app);      // init, pack, digest, attach, mutate
void AddInspectingCommands(CLI::App& app);  // info, verify, lint, plan, diff

// A signer as given on the command line.
struct SignerArguments {
  std::string key;
  std::string certificate;
  std::string passphraseFile;

  void AddTo(CLI::App& command, bool required);
  Signer Load() const;
};

std::vector<Certificate> LoadCertificates(const std::vector<std::string>& files);

}  // namespace authoring

#endif

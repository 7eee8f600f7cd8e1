#include <openssl/evp.h>

#include <array>

#include "authoring/Commands.h"
#include "authoring/Failure.h"
#include "authoring/Files.h"
#include "authoring/Output.h"
#include "authoring/Pack.h"

namespace authoring {

namespace {

// The first line of the file, or what is typed at the prompt, which libcrypto shows without echo.
std::string ReadPassphrase(const std::string& file) {
  if (!file.empty()) {
    std::string content = ReadFile(file);
    content.resize(std::min(content.find_first_of("\r\n"), content.size()));
    return content;
  }
  std::array<char, 1024> typed{};
  if (EVP_read_pw_string(typed.data(), static_cast<int>(typed.size()), "Passphrase of the key: ", 0) != 0) {
    throw Failure(ExitStatus::kKey, "The key is encrypted and no passphrase was given; use --passphrase-file.");
  }
  return typed.data();
}

void AddPack(CLI::App& app) {
  struct Arguments {
    std::string folder;
    std::string output;
    SignerArguments signer;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("pack", "Sign a folder's files, make a bundle of them");
  command->add_option("DIR", arguments->folder, "Folder that holds update.xml and the package files")->required();
  command->add_option("-o,--output", arguments->output, "Bundle to write")->required()->type_name("FILE");
  arguments->signer.AddTo(*command, true);
  command->footer("The same folder, key and certificate give the same bytes.");
  command->callback([arguments] {
    Signer signer = arguments->signer.Load();
    Pack(arguments->folder, signer, arguments->output);
    Say("Wrote {}, signed by {}\n", arguments->output, signer.certificate().Subject());
  });
}

}  // namespace

void AddMakingCommands(CLI::App& app) {
  AddPack(app);
}

void SignerArguments::AddTo(CLI::App& command, bool required) {
  CLI::Option* keyOption = command.add_option("--key", key, "Signer's private key, PEM; may be encrypted")
                               ->required(required)
                               ->type_name("KEY.pem");
  CLI::Option* certificateOption =
      command.add_option("--cert", certificate, "Signer's certificate, PEM")->required(required)->type_name("CERT.pem");
  keyOption->needs(certificateOption);
  certificateOption->needs(keyOption);
  command
      .add_option("--passphrase-file", passphraseFile,
                  "File whose first line is the passphrase of an encrypted key; without it there is a prompt")
      ->type_name("FILE");
}

Signer SignerArguments::Load() const {
  return Signer::FromFiles(key, certificate, [this] { return ReadPassphrase(passphraseFile); });
}

}  // namespace authoring

// quarvel-bundle: makes, signs, inspects and checks bundles.
#include <CLI/CLI.hpp>

#include <fmt/format.h>

#include <cstdio>

#include "authoring/Failure.h"
#include "authoring/Pack.h"
#include "authoring/Signing.h"

namespace {

using authoring::ExitStatus;

struct PackArguments {
  std::string folder;
  std::string output;
  std::string key;
  std::string certificate;
};

void AddPack(CLI::App& app, PackArguments& arguments) {
  CLI::App* pack = app.add_subcommand("pack", "Sign a folder's files and make a bundle of them");
  pack->add_option("DIR", arguments.folder, "Folder that holds update.xml and the package files")->required();
  pack->add_option("-o,--output", arguments.output, "Bundle to write")->required()->type_name("FILE");
  pack->add_option("--key", arguments.key, "Signer's private key, PEM")->required()->type_name("KEY.pem");
  pack->add_option("--cert", arguments.certificate, "Signer's certificate, PEM")->required()->type_name("CERT.pem");
  pack->callback([&arguments] {
    authoring::Signer signer = authoring::Signer::FromFiles(arguments.key, arguments.certificate);
    authoring::Pack(arguments.folder, signer, arguments.output);
    fmt::print("Wrote {}, signed by {}\n", arguments.output, signer.certificate().Subject());
  });
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Makes, signs, inspects and checks bundles for digital pens.", "quarvel-bundle");
  app.require_subcommand(1);
  PackArguments pack;
  AddPack(app, pack);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : static_cast<int>(ExitStatus::kUsage);
  } catch (const authoring::Failure& failure) {
    fmt::print(stderr, "quarvel-bundle: {}\n", failure.what());
    return static_cast<int>(failure.status());
  }
  return static_cast<int>(ExitStatus::kDone);
}

#include "host/Arguments.h"

int main(int argc, char** argv) {
  return RunCommandLine(argc, argv);
}

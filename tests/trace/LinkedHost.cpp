#include "tests/trace/Caller.h"

int main(int argc, char** argv) {
  return RunCaller(argc, argv);
}

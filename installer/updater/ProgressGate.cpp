#include "installer/updater/ProgressGate.h"

#include <memory>
#include <vector>

namespace {

std::mutex g_gatesLock;
std::vector<std::unique_ptr<ProgressGate>> g_gates;
std::vector<ProgressGate*> g_freeGates;

}  // namespace

ProgressGate* ProgressGate::Take() {
  const std::lock_guard lock(g_gatesLock);
  if (g_freeGates.empty()) {
    g_freeGates.reserve(g_gates.size() + 1);  // so that giving back never allocates
    g_gates.push_back(std::make_unique<ProgressGate>());
    return g_gates.back().get();
  }
  ProgressGate* gate = g_freeGates.back();
  g_freeGates.pop_back();
  return gate;
}

void ProgressGate::GiveBack(ProgressGate* gate) {
  const std::lock_guard lock(g_gatesLock);
  g_freeGates.push_back(gate);
}

// The pens of one folder, held for the time of one call: from construction to destruction no other thread or process
// can change them, and what was due to happen to them has happened. A pen's file is replaced whole, so that a killed
// process never leaves half a pen.
#ifndef QUARVEL_SIMULATOR_BENCH_H
#define QUARVEL_SIMULATOR_BENCH_H

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "simulator/Pen.h"

namespace sim {

// What is true of all pens of a folder.
struct BenchState {
  int32_t nextHandle = 1;
  std::vector<Fault> faults{};
  std::string trace{};  // file of the trace, empty for none
};

// The folder in use: the one that was set, else the environment's.
std::filesystem::path PenFolder();
void SetPenFolder(const std::string& folder);

// What is true of the folder in use, read without holding it.
BenchState PeekState();

// A look at the pens as they are now, in the order of their ids. What is looked at does not change any more.
using PenPointer = std::shared_ptr<const Pen>;
std::vector<PenPointer> PeekPens();
// The pen on the bus under a handle; throws pbErrHandle.
PenPointer PeekOnBus(int32_t handle);

// A file that this process holds locked, so that other processes (and other holders in this one) know; released when
// the object goes or the process dies.
class FileLock {
 public:
  enum class Wait { kForever, kForeverShared, kNot };
  FileLock() = default;
  // Throws pbErrFolder when the file cannot be made; with kNot, an object that is not locked tells that another holds
  // it.
  FileLock(const std::filesystem::path& file, Wait wait);
  ~FileLock();
  FileLock(FileLock&& other) noexcept;
  FileLock& operator=(FileLock&& other) noexcept;

  bool isLocked() const { return m_descriptor >= 0; }

 private:
  int m_descriptor = -1;
};

class Bench {
 public:
  Bench();

  std::vector<Pen>& pens() { return m_pens; }
  BenchState& state() { return m_state; }

  // The pen on the bus under a handle; throws pbErrHandle.
  Pen& OnBus(int32_t handle);
  // The pen with an id, null without one.
  Pen* Find(uint64_t id);

  // Puts a pen on the bus under a handle that no pen had before. The caller saves it.
  void Connect(Pen& pen);
  // The same by a person's hand: the pen starts anew, in the mode in which its settings let it start.
  void PlugIn(Pen& pen);

  void Save(const Pen& pen);
  void SaveState();
  void Add(const Pen& pen);
  void Remove(uint64_t id);

 private:
  void Load();
  bool LetTimePass(Pen& pen, int64_t now);

  std::filesystem::path m_folder;
  FileLock m_lock;
  std::vector<Pen> m_pens;  // by id
  BenchState m_state;
};

}  // namespace sim

#endif

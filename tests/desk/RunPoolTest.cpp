// Runs side by side, with calls of the library that do as they are told.
#include <gtest/gtest.h>

#include <future>

#include "desk/RunPool.h"
#include "tests/support/TempFolder.h"

namespace {

class Ends : public RunObserver {
 public:
  void OnEnded(const PenRun& /*run*/, const RunEnd& end) override {
    std::lock_guard<std::mutex> guard(m_lock);
    m_codes.push_back(end.code);
  }
  std::vector<InsResCode> Codes() {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_codes;
  }

 private:
  std::mutex m_lock;
  std::vector<InsResCode> m_codes;
};

class Bench {
 public:
  using Call = decltype(Job::call);

  explicit Bench(Call call) : m_log(m_folder / "log") { m_job.call = std::move(call); }

  std::shared_ptr<PenRun> Run(uint64_t id) {
    Pen pen;
    pen.id = id;
    pen.handle = static_cast<int32_t>(id);
    return std::make_shared<PenRun>(pen, std::make_shared<const Job>(m_job), m_log, std::vector<RunObserver*>{&m_ends},
                                    [](const PenRun&, const PackageRow&) { return true; });
  }
  Ends& ends() { return m_ends; }
  Job& job() { return m_job; }

 private:
  TempFolder m_folder;
  LogReader m_log;
  Job m_job;
  Ends m_ends;
};

TEST(RunPool, ServesTwentyAtATimeAndTheOthersInTurn) {
  std::atomic<size_t> now{0};
  std::atomic<size_t> most{0};
  std::promise<void> full;
  std::shared_future<void> isFull = full.get_future().share();
  Bench bench([&](int32_t*, PenUpdateProgressCallback, void*) {
    size_t count = ++now;
    if (count > most) most = count;
    if (count == RunPool::kPlaces) full.set_value();
    isFull.wait();
    --now;
    return insNothingToDo;
  });
  RunPool pool;
  for (uint64_t id = 1; id <= 45; ++id) pool.Start(bench.Run(id));
  pool.Wait();
  EXPECT_EQ(bench.ends().Codes(), std::vector<InsResCode>(45, insNothingToDo));
  EXPECT_EQ(most, RunPool::kPlaces);
}

// The library forgets an abort that comes while a run begins, so the answer to its next report must end it.
TEST(RunPool, AStopReachesWhatRunsAndWhatWaits) {
  std::atomic<int> calls{0};
  std::promise<void> began;
  std::promise<void> stopped;
  std::shared_future<void> isStopped = stopped.get_future().share();
  Bench bench([&](int32_t* penHandle, PenUpdateProgressCallback callback, void* userData) {
    if (++calls == static_cast<int>(RunPool::kPlaces)) began.set_value();
    isStopped.wait();
    PenUpdateProgressCallbackInfo report{};
    return callback(*penHandle, &report, userData) != 0 ? insAborted : insNothingToDo;
  });
  RunPool pool;
  for (uint64_t id = 1; id <= RunPool::kPlaces + 1; ++id) pool.Start(bench.Run(id));
  began.get_future().wait();
  pool.StopAll();
  stopped.set_value();
  pool.Wait();
  EXPECT_EQ(bench.ends().Codes(), std::vector<InsResCode>(RunPool::kPlaces + 1, insAborted));
  EXPECT_EQ(calls, static_cast<int>(RunPool::kPlaces)) << "a run that waited began although it was stopped";
}

// The library failed before it came to any of the packages.
TEST(PenRun, APenThatWasNotTouchedIsNotLeftHalfWay) {
  for (bool reported : {false, true}) {
    Bench bench([reported](int32_t* penHandle, PenUpdateProgressCallback callback, void* userData) {
      PenUpdateProgressCallbackInfo report{};
      report.packageFile = "/t/a.pen";
      report.itemTotal = 1;
      if (reported) callback(*penHandle, &report, userData);
      return insPenFailure;
    });
    bench.job().expect = [](const Pen&) { return std::vector<PackageRow>(2); };
    auto run = bench.Run(42);
    run->Execute();
    EXPECT_FALSE(run->End().packages.empty());
    EXPECT_EQ(run->End().left.has_value(), reported);
  }
}

TEST(PenRun, NeverSkipsAPackageThatFailsItsSignatureCheck) {
  for (InsResCode error : {insPackageUnsigned, insAppFailed}) {
    Bench bench([error](int32_t* penHandle, PenUpdateProgressCallback callback, void* userData) {
      PenUpdateProgressCallbackInfo report{};
      report.result = error;
      return callback(*penHandle, &report, userData) != 0 ? error : static_cast<InsResCode>(insNothingToDo);
    });
    auto run = bench.Run(42);
    run->Execute();
    EXPECT_EQ(run->End().code, error == insPackageUnsigned ? error : static_cast<InsResCode>(insNothingToDo));
  }
}

}  // namespace

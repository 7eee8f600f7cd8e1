#include "host/Interrupts.h"

#include <pthread.h>
#include <stdio.h>
#include <unistd.h>

namespace {

bool IsIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

// A blocked signal would be taken although it is ignored.
Interrupts::Interrupts() {
  sigemptyset(&m_signals);
  sigaddset(&m_signals, SIGUSR1);
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (!IsIgnored(signal)) sigaddset(&m_signals, signal);
  }
  pthread_sigmask(SIG_BLOCK, &m_signals, &m_before);
  m_thread = std::thread(&Interrupts::Serve, this);
}

Interrupts::~Interrupts() {
  m_ending = true;
  pthread_kill(m_thread.native_handle(), SIGUSR1);
  m_thread.join();
  pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

void Interrupts::Attend(Handler handler) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_handler = std::move(handler);
}

void Interrupts::BeforeForcedEnd(ForcedEnd last) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_last = std::move(last);
}

void Interrupts::EndProcess(ExitStatus status, const char* words) {
  if (m_last) m_last(status, words);
  fprintf(stderr, "\nquarvel: %s.\n", words);
  _exit(static_cast<int>(status));
}

// SIGUSR1 is only the destructor's way to end the wait.
void Interrupts::Serve() {
  int signal = 0;
  while (sigwait(&m_signals, &signal) == 0 && !m_ending) {
    if (signal != SIGUSR1) OnSignal();
  }
}

void Interrupts::OnSignal() {
  std::lock_guard<std::mutex> guard(m_lock);
  int count = ++m_count;
  if (!m_handler) EndProcess(ExitStatus::kAborted, "stopped; no pen was touched");
  if (count >= 3) EndProcess(ExitStatus::kKilled, "stopped at once");
  m_handler(count);
}

#include "host/Interrupts.h"

#include <pthread.h>
#include <stdio.h>
#include <unistd.h>

#include "desk/ResultTexts.h"

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
  if (!m_handler) {
    fputs("\nquarvel: stopped; no pen was touched.\n", stderr);
    _exit(static_cast<int>(ExitStatus::kAborted));
  }
  if (count >= 3) {
    fputs("\nquarvel: stopped at once.\n", stderr);
    _exit(static_cast<int>(ExitStatus::kKilled));
  }
  m_handler(count);
}

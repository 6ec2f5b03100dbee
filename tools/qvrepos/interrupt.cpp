#include "interrupt.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <system_error>
#include <thread>

#include <pthread.h>

namespace fs = std::filesystem;

namespace {

// Never destroyed: the watching thread may use them until the process is gone.
struct Shared {
  std::recursive_mutex busy;
  std::list<std::function<void()>> undo; // guarded by `busy`
};
Shared& shared() {
  static auto* const instance = new Shared;
  return *instance;
}

sigset_t watchedSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    sigaddset(&signals, signal);
  return signals;
}

// Ends the process by the signal itself, so that whoever started it sees why.
[[noreturn]] void endBy(int signal) {
  std::signal(signal, SIG_DFL);
  const sigset_t signals = watchedSignals();
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  std::raise(signal);
  std::_Exit(128 + signal);
}

void waitForSignal() {
  const sigset_t signals = watchedSignals();
  int signal = 0;
  if (sigwait(&signals, &signal) != 0)
    return;
  const std::lock_guard guard(shared().busy);
  for (const auto& undo : shared().undo)
    undo();
  endBy(signal);
}

} // namespace

void Interrupts::watch() {
  const sigset_t signals = watchedSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  shared();
  std::thread(waitForSignal).detach();
}

Interrupts::Hold::Hold() : m_lock(shared().busy) {}

Interrupts::Undo::Undo(std::function<void()> undo) {
  const Hold hold;
  m_undo = shared().undo.insert(shared().undo.begin(), std::move(undo));
}

Interrupts::Undo::~Undo() {
  const Hold hold;
  (*m_undo)();
  shared().undo.erase(m_undo);
}

Interrupts::Scratch::Scratch() {
  const Hold hold;
  std::string pattern = (fs::temp_directory_path() / "qvrepos.XXXXXX").string();
  if (!mkdtemp(pattern.data()))
    throw std::system_error(errno, std::generic_category(), "cannot make a folder in " + pattern);
  m_undo.emplace([this, pattern] {
    std::error_code ignored;
    if (!m_kept)
      fs::remove_all(pattern, ignored);
  });
  setenv("TMPDIR", pattern.c_str(), 1);
}

void Interrupts::Scratch::keep() {
  const Hold hold;
  m_kept = true;
}

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

bool isIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

// Those that whoever started the tool wants ignored (as nohup does) stay so.
sigset_t watchedSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
    if (!isIgnored(signal))
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
  std::error_code error;
  const fs::path folder = fs::temp_directory_path(error);
  if (error)
    throw std::runtime_error("no folder for temporary files; set TMPDIR to one that exists");
  const Hold hold;
  std::string pattern = (folder / "qvrepos.XXXXXX").string();
  if (!mkdtemp(pattern.data()))
    throw std::system_error(errno, std::generic_category(),
                            "cannot make a folder in " + folder.string() +
                                "; set TMPDIR to one that takes it");
  m_undo.emplace([this, pattern] {
    if (m_kept)
      return;
    // Under another name nothing is put into it any more while it is removed.
    std::error_code ignored;
    const std::string gone = pattern + ".gone";
    fs::rename(pattern, gone, ignored);
    fs::remove_all(gone, ignored);
  });
  setenv("TMPDIR", pattern.c_str(), 1);
}

void Interrupts::Scratch::keep() {
  const Hold hold;
  m_kept = true;
}

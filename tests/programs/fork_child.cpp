// Uses the SDK, forks (without exec) while requests are in flight, and checks that the
// child gets a working SDK of its own and the parent keeps its own.
//   fork_child HOST:PORT CA_BUNDLE
// Exits 0 when both the child's and the parent's request after the fork got their
// answer; otherwise 1 (usage), 2 (the child failed: its exit status + 10), 3 (the
// parent's request failed) or 4 (the child hung and was killed).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>

#include "tavik/tavik.h"

// The child starts threads of its own after a fork of a threaded process, which is what
// is being tested; ThreadSanitizer would otherwise stop it there.
extern "C" const char* __tsan_default_options() {
  return "die_after_fork=0";
}

namespace {

// One event through the SDK; true when it got its answer.
bool oneEvent(const tavik::TAVIK& sdk, const char* who) {
  auto event = sdk.registerEvent()->registerAdClickEvent(
      who, "uc", nullptr,
      [who](const tavik::TavikError& e) { std::cerr << who << ": " << e.description() << "\n"; });
  if (event.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
    std::cerr << who << ": no answer within 10 s\n";
    return false;
  }
  return event.get().has_value();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: fork_child HOST:PORT CA_BUNDLE\n";
    return 1;
  }
  using namespace tavik;
  const TAVIK sdk = TAVIK::Builder()
                        .clientId("fork-test")
                        .eventTrackingHost(argv[1])
                        .trustedCaBundle(argv[2])
                        .debug(true)
                        .build();
  setLogSink([](std::string_view) {});  // the sink's lock must not follow into the child
  if (!oneEvent(sdk, "parent-before")) return 3;
  // More requests in flight, and lines being logged, at the moment of the fork.
  for (int i = 0; i < 20; ++i) sdk.registerEvent()->registerAdClickEvent("busy", "uc", nullptr);
  (void)backgroundExecutor();

  const pid_t child = ::fork();
  if (child < 0) return 1;
  if (child == 0) {
    const bool ok = oneEvent(sdk, "child");
    // Work on the background thread too, which the child must get anew.
    auto posted = Future<int>::ready(1).then(backgroundExecutor(), [](int v) { return v + 1; });
    const bool background = posted.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    std::exit(ok && background ? 0 : 5);
  }

  const bool parentOk = oneEvent(sdk, "parent-after");
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  int status = 0;
  while (::waitpid(child, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(child, SIGKILL);
      ::waitpid(child, &status, 0);
      return 4;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::cerr << "child ended with status " << status << "\n";
    return 2;
  }
  return parentOk ? 0 : 3;
}

#include <signal.h>

#include <cstdio>
#include <mutex>

#include "tavik/sandbox/sandbox.h"

namespace tavik::sandbox {

int runInForeground(Options options, std::function<std::string(const RecordedRequest&)> requestLine,
                    const std::function<void(const Sandbox&)>& announce,
                    const std::string& errorPrefix) {
  // Block the stop signals before any server thread exists, so that every thread inherits
  // the mask and this thread alone receives them through sigwait().
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  // Request lines wait for the address line, which scripts read first.
  std::mutex output;
  std::unique_lock announcing(output);
  if (requestLine) {
    options.onRequest = [&output, requestLine](const RecordedRequest& request) {
      const std::string line = requestLine(request);
      std::lock_guard lock(output);
      std::printf("%s\n", line.c_str());
      std::fflush(stdout);
    };
  }

  Sandbox sandbox(options);
  try {
    sandbox.start();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s%s\n", errorPrefix.c_str(), error.what());
    return 1;
  }
  std::printf("%s\n", sandbox.baseUrl().c_str());
  std::fflush(stdout);
  if (announce) announce(sandbox);
  announcing.unlock();

  int received = 0;
  sigwait(&stopSignals, &received);
  sandbox.stop();
  return 0;
}

}  // namespace tavik::sandbox

#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tavik/core/tavik.h"
#include "tavik/network/transport.h"
#include "tavik/sandbox/sandbox.h"

namespace tavik::test {

/// A sandbox started on an ephemeral loopback port whose certificate this process
/// trusts, plus SDK objects configured to talk to it.
class SandboxEnv {
 public:
  explicit SandboxEnv(sandbox::Options options = {});

  sandbox::Sandbox& server() { return *sandbox_; }
  /// "127.0.0.1:PORT": what the builder takes as a host name.
  std::string host() const;
  /// "https://127.0.0.1:PORT".
  std::string base() const { return sandbox_->baseUrl(); }

  /// An SDK built against the sandbox for all three services.
  TAVIK sdk(bool debug = false, const std::string& clientId = "client-1") const;
  /// The same configuration as a `Config` record.
  Config config(bool debug = false, const std::string& clientId = "client-1") const;

 private:
  std::unique_ptr<sandbox::Sandbox> sandbox_;
};

/// Scripted answers for the sandbox.
sandbox::ScriptedAnswer reply(int status, std::string body = "",
                              std::string contentType = "application/json");
sandbox::ScriptedAnswer redirect(int status, std::string location);
sandbox::ScriptedAnswer slow(std::chrono::milliseconds delay, std::string body = "{}");
sandbox::ScriptedAnswer cutMidAnswer(std::string body);

/// Runs a program as a child process and waits at most `timeout` for it. Returns its
/// exit status, -1 when it was killed by a signal, or -2 when it had to be killed for
/// running too long.
int runProgram(const std::vector<std::string>& argv, std::chrono::milliseconds timeout);

/// A loopback port nothing listens on (bound, then released).
int closedPort();

/// A folder of this test process alone, made on first use under $TMPDIR (or /tmp) and
/// removed with everything in it when the process exits. Ends with '/'.
const std::string& privateTempDir();

}  // namespace tavik::test

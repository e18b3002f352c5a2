// tavik-sandbox: runs the sandbox as a program for the demo app and for tests that start
// it as a child process. The first line on stdout is the base address; then, unless
// --quiet, one line per request: method, path?query, client connection.

#include <charconv>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <string>
#include <string_view>

#include "tavik/sandbox/sandbox.h"

namespace {

const char* const kUsage =
    "usage: tavik-sandbox [--port N] [--cert-out FILE] [--catalogue FILE] [--media-dir DIR]\n"
    "                     [--quiet]\n"
    "\n"
    "Serves the product-ads, display-ads and event-tracking services over HTTPS on\n"
    "127.0.0.1 until SIGINT or SIGTERM. Prints its base address (https://127.0.0.1:PORT)\n"
    "as the first line, then one line per request unless --quiet.\n"
    "\n"
    "  --port N          port to listen on (default 0: any free port)\n"
    "  --cert-out FILE   write the PEM certificate that clients must trust to FILE\n"
    "  --catalogue FILE  serve the ads of this JSON catalogue instead of the built-in one\n"
    "  --media-dir DIR   serve /media/ files from DIR before the built-in ones\n"
    "  --quiet           print only the base address\n";

int usageError(const std::string& problem) {
  std::cerr << "tavik-sandbox: " << problem << "\n\n" << kUsage;
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  tavik::sandbox::Options options;
  bool quiet = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    const auto takeValue = [&](std::string& into) {
      if (i + 1 >= argc) return false;
      into = argv[++i];
      return true;
    };
    if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      return 0;
    } else if (arg == "--quiet") {
      quiet = true;
    } else if (arg == "--port") {
      std::string text;
      if (!takeValue(text)) return usageError("--port needs a value");
      int port = -1;
      const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), port);
      if (error != std::errc() || rest != text.data() + text.size() || port < 0 || port > 65535) {
        return usageError("--port needs a number from 0 to 65535, not '" + text + "'");
      }
      options.port = port;
    } else if (arg == "--cert-out") {
      if (!takeValue(options.certOut)) return usageError("--cert-out needs a file name");
    } else if (arg == "--catalogue") {
      if (!takeValue(options.catalogueFile)) return usageError("--catalogue needs a file name");
    } else if (arg == "--media-dir") {
      if (!takeValue(options.mediaDir)) return usageError("--media-dir needs a directory");
    } else {
      return usageError("unknown argument '" + std::string(arg) + "'");
    }
  }

  std::function<std::string(const tavik::sandbox::RecordedRequest&)> line;
  if (!quiet) {
    line = [](const tavik::sandbox::RecordedRequest& request) {
      std::string target = request.path;
      if (!request.rawQuery.empty()) target += "?" + request.rawQuery;
      return request.method + " " + target + " " + request.connection;
    };
  }
  return tavik::sandbox::runInForeground(
      options, line,
      [](const tavik::sandbox::Sandbox& sandbox) {
        std::fprintf(stderr, "tavik-sandbox: clients must trust %s\n", sandbox.certPath().c_str());
      },
      "tavik-sandbox: ");
}

#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace tavik {

/// Any error the SDK can carry inside a `TavikError` (a transport failure, a JSON parse
/// failure, a decoding failure). Its `what()` is its localized description.
using ErrorPtr = std::shared_ptr<const std::exception>;

/// The one error type that reaches the host. Eleven cases; `invalidRequest`,
/// `badStatus` and `defaultError` carry payloads.
class TavikError : public std::exception {
 public:
  /// Which of the eleven errors this is.
  enum class Case {
    invalidRequest,
    badStatus,
    defaultError,
    badUrl,
    badResponse,
    failedToEncode,
    failedToDecode,
    missingConfiguration,
    missingDisplayAdConfig,
    missingPlaAdConfig,
    missingRegisterEventConfig,
  };

  /// A malformed request or missing required parameters; `cause` is kept when given.
  static TavikError invalidRequest(ErrorPtr cause = nullptr);
  /// The server answered with the unsuccessful HTTP status `code` and `body`.
  static TavikError badStatus(int code, std::string body);
  /// Any other failure, carrying `error` (its message becomes the description).
  static TavikError defaultError(ErrorPtr error);
  /// An address that is invalid or malformed.
  static TavikError badUrl() { return TavikError(Case::badUrl); }
  /// An answer that is invalid or cannot be processed.
  static TavikError badResponse() { return TavikError(Case::badResponse); }
  /// Data could not be encoded.
  static TavikError failedToEncode() { return TavikError(Case::failedToEncode); }
  /// Data could not be decoded or parsed; also a missing or empty ad unit.
  static TavikError failedToDecode() { return TavikError(Case::failedToDecode); }
  /// The SDK was used before it was configured.
  static TavikError missingConfiguration() { return TavikError(Case::missingConfiguration); }
  /// The display-ad endpoint was not configured.
  static TavikError missingDisplayAdConfig() { return TavikError(Case::missingDisplayAdConfig); }
  /// The product-listing-ad endpoint was not configured.
  static TavikError missingPlaAdConfig() { return TavikError(Case::missingPlaAdConfig); }
  /// The event endpoint was not configured.
  static TavikError missingRegisterEventConfig() {
    return TavikError(Case::missingRegisterEventConfig);
  }

  /// Wraps any caught exception: a `TavikError` of a passed-through case (badStatus,
  /// badUrl, badResponse and the missing-endpoint cases) stays as it is, everything
  /// else becomes `defaultError` carrying it.
  static TavikError fromException(std::exception_ptr error);

  /// The case of this error.
  Case kind() const { return case_; }
  /// The case's name as written in code ("badStatus", "missingPlaAdConfig").
  std::string caseName() const;

  /// The description text of the case.
  std::string description() const;
  /// Always present, equal to `description()`.
  std::optional<std::string> errorDescription() const { return description(); }
  /// Always absent.
  std::optional<std::string> failureReason() const { return std::nullopt; }

  /// The error in the form hosts log or forward.
  struct Info {
    /// Stable code of the case ("ERROR_BAD_STATUS", ...).
    std::string code;
    /// The description of the case.
    std::string message;
    /// The underlying error (`cause()`); null when there is none.
    ErrorPtr error;
  };
  /// Code, message and underlying error, for hosts that log or forward errors.
  Info get() const;

  /// The code of `get()` ("ERROR_BAD_STATUS", "ERROR_CONFIGURATION", ...).
  std::string code() const;
  /// badStatus: the HTTP status and body; 0 and "" for the other cases.
  int statusCode() const { return status_; }
  /// badStatus: the answer's body; empty for the other cases.
  const std::string& body() const { return body_; }
  /// invalidRequest's cause or defaultError's wrapped error; null otherwise.
  const ErrorPtr& cause() const { return cause_; }

  /// The description, as a C string that lives as long as the error.
  const char* what() const noexcept override;

 private:
  explicit TavikError(Case c) : case_(c) { what_ = description(); }

  Case case_;
  int status_ = 0;
  std::string body_;
  ErrorPtr cause_;
  std::string what_;
};

/// A failure of the HTTP transport. The public operations report it as `defaultError`
/// carrying this error; `kind()` tells what happened without libcurl's codes.
class TransportError : public std::runtime_error {
 public:
  /// Stable: new kinds may be added, existing ones keep their meaning and name.
  enum class Kind {
    /// No answer within the request time-out, counted from the call (queue included).
    timeout,
    /// The connection was refused or the host could not be reached.
    connectionFailed,
    /// The host name did not resolve.
    nameResolution,
    /// TLS failed: an untrusted or misnamed certificate, or a failed handshake.
    tls,
    /// The answer's body is larger than the limit of the request.
    answerTooLarge,
    /// A redirect the SDK does not follow: to another scheme than https, or too many.
    redirectRefused,
    /// The connection broke off before the whole answer arrived.
    connectionLost,
    /// The request was cancelled (`Future::cancel()`).
    cancelled,
    /// Too many requests already wait for the same origin
    /// (`transport::Settings::maxQueuedPerOrigin`); the request was never sent.
    queueFull,
    /// Anything else (an address libcurl refuses, out of memory, ...).
    other,
  };

  /// An error of `kind` with libcurl's `curlCode` (0 when libcurl was not involved) and `message`.
  TransportError(Kind kind, int curlCode, const std::string& message)
      : std::runtime_error(message), kind_(kind), curlCode_(curlCode) {}
  /// An error of kind `other`.
  TransportError(int curlCode, const std::string& message)
      : TransportError(Kind::other, curlCode, message) {}

  /// What went wrong.
  Kind kind() const { return kind_; }
  /// The kind's name: "timeout", "connectionFailed", "nameResolution", "tls",
  /// "answerTooLarge", "redirectRefused", "connectionLost", "cancelled", "queueFull",
  /// "other".
  std::string kindName() const { return kindName(kind_); }
  /// The name of `kind`, as `kindName()`.
  static std::string kindName(Kind kind);
  /// libcurl's code (0 for failures that never reached libcurl: queue full, cancelled
  /// before it started, timed out while waiting).
  int curlCode() const { return curlCode_; }

 private:
  Kind kind_;
  int curlCode_;
};

/// The transport error inside an error the public operations reported (`defaultError`
/// carrying a `TransportError`), or nullptr.
const TransportError* transportErrorOf(const TavikError& error);

/// A JSON document that does not decode into the SDK's records. `path()` names where
/// (for example "ads.au_home[1].rank"); `what()` says what failed and where.
class DecodingError : public std::runtime_error {
 public:
  /// A failure described by `problem` at `path` (empty for the document itself).
  DecodingError(std::string path, const std::string& problem)
      : std::runtime_error(problem + (path.empty() ? "" : " at " + path)), path_(std::move(path)) {}
  /// Where in the document the failure is, e.g. "ads.au_home[1].rank"; empty for the whole.
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace tavik

#include "tavik/core/error.h"

#include <nlohmann/json.hpp>

namespace tavik {

TavikError TavikError::invalidRequest(ErrorPtr cause) {
  TavikError e(Case::invalidRequest);
  e.cause_ = std::move(cause);
  return e;
}

TavikError TavikError::badStatus(int code, std::string body) {
  TavikError e(Case::badStatus);
  e.status_ = code;
  e.body_ = std::move(body);
  e.what_ = e.description();
  return e;
}

TavikError TavikError::defaultError(ErrorPtr error) {
  TavikError e(Case::defaultError);
  e.cause_ = std::move(error);
  e.what_ = e.description();
  return e;
}

TavikError TavikError::fromException(std::exception_ptr error) {
  try {
    std::rethrow_exception(error);
  } catch (const TavikError& e) {
    switch (e.kind()) {
      case Case::badStatus:
      case Case::badUrl:
      case Case::badResponse:
      case Case::missingDisplayAdConfig:
      case Case::missingPlaAdConfig:
      case Case::missingRegisterEventConfig:
        return e;
      default:
        return defaultError(std::make_shared<TavikError>(e));
    }
  } catch (const TransportError& e) {
    return defaultError(std::make_shared<TransportError>(e));
  } catch (const DecodingError& e) {
    return defaultError(std::make_shared<DecodingError>(e));
  } catch (const nlohmann::json::parse_error& e) {
    return defaultError(std::make_shared<nlohmann::json::parse_error>(e));
  } catch (const nlohmann::json::exception& e) {
    return defaultError(std::make_shared<std::runtime_error>(e.what()));
  } catch (const std::exception& e) {
    // Keep the message; the concrete type of a foreign exception cannot be copied.
    return defaultError(std::make_shared<std::runtime_error>(e.what()));
  } catch (...) {
    return defaultError(std::make_shared<std::runtime_error>("unknown error"));
  }
}

std::string TransportError::kindName(Kind kind) {
  switch (kind) {
    case Kind::timeout:
      return "timeout";
    case Kind::connectionFailed:
      return "connectionFailed";
    case Kind::nameResolution:
      return "nameResolution";
    case Kind::tls:
      return "tls";
    case Kind::answerTooLarge:
      return "answerTooLarge";
    case Kind::redirectRefused:
      return "redirectRefused";
    case Kind::connectionLost:
      return "connectionLost";
    case Kind::cancelled:
      return "cancelled";
    case Kind::queueFull:
      return "queueFull";
    case Kind::other:
      return "other";
  }
  return "other";
}

const TransportError* transportErrorOf(const TavikError& error) {
  return dynamic_cast<const TransportError*>(error.cause().get());
}

std::string TavikError::caseName() const {
  switch (case_) {
    case Case::invalidRequest:
      return "invalidRequest";
    case Case::badStatus:
      return "badStatus";
    case Case::defaultError:
      return "defaultError";
    case Case::badUrl:
      return "badUrl";
    case Case::badResponse:
      return "badResponse";
    case Case::failedToEncode:
      return "failedToEncode";
    case Case::failedToDecode:
      return "failedToDecode";
    case Case::missingConfiguration:
      return "missingConfiguration";
    case Case::missingDisplayAdConfig:
      return "missingDisplayAdConfig";
    case Case::missingPlaAdConfig:
      return "missingPlaAdConfig";
    case Case::missingRegisterEventConfig:
      return "missingRegisterEventConfig";
  }
  return "unknown";
}

std::string TavikError::description() const {
  switch (case_) {
    case Case::invalidRequest:
      return "The request is improperly formed or missing required parameters.";
    case Case::badStatus:
      return "The server returned an unsuccessful HTTP status code " + std::to_string(status_) +
             ".";
    case Case::defaultError:
      return cause_ ? cause_->what() : "unknown error";
    case Case::badUrl:
      return "The provided URL is invalid or malformed.";
    case Case::badResponse:
      return "The response received from the server is invalid or cannot be processed.";
    case Case::failedToEncode:
      return "Failed to encode the data";
    case Case::failedToDecode:
      return "Failed to decode or parse the data";
    case Case::missingConfiguration:
      return "SDK configuration parameters not configured at time of SDK initialization.";
    case Case::missingDisplayAdConfig:
      return "Display Ads parameters not configured at time of SDK initialization.";
    case Case::missingPlaAdConfig:
      return "PLA Ads parameters not configured at time of SDK initialization.";
    case Case::missingRegisterEventConfig:
      return "Register event parameters not configured at time of SDK initialization.";
  }
  return {};
}

std::string TavikError::code() const {
  switch (case_) {
    case Case::invalidRequest:
      return "ERROR_INVALID_REQUEST";
    case Case::badStatus:
      return "ERROR_BAD_STATUS";
    case Case::defaultError:
      return "UNKNOWN_ERROR";
    case Case::badUrl:
      return "ERROR_BAD_URL";
    case Case::badResponse:
      return "ERROR_BAD_RESPONSE";
    case Case::failedToEncode:
      return "ERROR_FAILED_TO_ENCODE_DATA";
    case Case::failedToDecode:
      return "ERROR_FAILED_TO_DECODE_DATA";
    case Case::missingConfiguration:
    case Case::missingDisplayAdConfig:
    case Case::missingPlaAdConfig:
    case Case::missingRegisterEventConfig:
      return "ERROR_CONFIGURATION";
  }
  return {};
}

TavikError::Info TavikError::get() const {
  Info info{code(), description(), nullptr};
  if ((case_ == Case::invalidRequest || case_ == Case::defaultError) && cause_) {
    info.error = cause_;
  } else {
    info.error = std::make_shared<TavikError>(*this);
  }
  return info;
}

const char* TavikError::what() const noexcept {
  return what_.c_str();
}

}  // namespace tavik

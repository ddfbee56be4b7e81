#pragma once

#include "common/Wait.h"
#include "sonos/SonosError.h"

#include <QFuture>

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <ostream>

// Readable failures for the speaker stack's errors.
inline void PrintTo(const SonosError& error, std::ostream* out)
{
    *out << describe(error).toStdString();
}
inline void PrintTo(const TransportError& error, std::ostream* out)
{
    *out << "transport error " << int(error.code) << " (" << error.text.toStdString() << ")";
}

namespace speaker_testing {

// The outcome of an operation, turning the event loop until it arrives. A future that never
// finishes fails the test instead of hanging it.
template <typename T>
SonosResult<T> settle(const QFuture<SonosResult<T>>& future,
                      std::chrono::milliseconds timeout = std::chrono::seconds(20))
{
    if (!testing_support::await(future, timeout)) {
        ADD_FAILURE() << "no answer within " << timeout.count() << " ms";
        return SpeakerError{TransportError{QNetworkReply::UnknownNetworkError,
                                           QStringLiteral("no answer in the test")}};
    }
    return future.result();
}

// For ASSERT_TRUE: a failure names the error.
template <typename T>
::testing::AssertionResult succeeded(const SonosResult<T>& result)
{
    if (result)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << describe(result.error()).toStdString();
}

template <typename T>
std::optional<SpeakerError> errorOf(const SonosResult<T>& result)
{
    if (result)
        return std::nullopt;
    return result.error();
}

template <typename T>
std::optional<QNetworkReply::NetworkError> transportCodeOf(const SonosResult<T>& result)
{
    if (result)
        return std::nullopt;
    if (const auto* transport = std::get_if<TransportError>(&result.error()))
        return transport->code;
    return std::nullopt;
}

inline std::optional<SpeakerError> badResponse()
{
    return SpeakerError{SonosError::badResponse()};
}

inline std::optional<SpeakerError> http(int status)
{
    return SpeakerError{SonosError::http(status)};
}

} // namespace speaker_testing

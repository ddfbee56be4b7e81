#pragma once

#include "support/Expected.h"

#include <QNetworkReply>
#include <QString>

#include <variant>

// The speaker stack's own error.
struct SonosError {
    enum class Kind {
        Http,        // status other than 200 (`status`), or no HTTP answer at all (-1)
        NotFound,    // a speaker asked for by name was not discovered (`speakerName`)
        BadResponse, // URL not formable, body over the cap, required element missing
    };
    Kind kind = Kind::BadResponse;
    int status = 0;
    QString speakerName;

    static SonosError http(int status) { return {Kind::Http, status, {}}; }
    static SonosError notFound(QString name) { return {Kind::NotFound, 0, std::move(name)}; }
    static SonosError badResponse() { return {Kind::BadResponse, 0, {}}; }
    bool operator==(const SonosError&) const = default;
};

// A failure of the network itself (time-out, refused, no route), passed up unchanged.
struct TransportError {
    QNetworkReply::NetworkError code = QNetworkReply::UnknownNetworkError;
    QString text; // the network layer's own description
    bool operator==(const TransportError&) const = default;
};

using SpeakerError = std::variant<SonosError, TransportError>;

// A sentence for the log or the user, e.g. "HTTP 500" or the transport's own text.
QString describe(const SpeakerError& error);

template <typename T>
using SonosResult = Expected<T, SpeakerError>;

#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

// The fuzzer's bytes as the parsers meet them: the raw bytes of a datagram or a body, and
// the text a network answer is decoded to.
inline QByteArray fuzzBytes(const std::uint8_t* data, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

inline QString fuzzText(const std::uint8_t* data, std::size_t size)
{
    return QString::fromUtf8(fuzzBytes(data, size));
}

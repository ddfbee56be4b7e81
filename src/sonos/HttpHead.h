#pragma once

#include <QByteArrayView>
#include <QList>

// Pieces of reading an HTTP head that answers and requests share.
namespace HttpHead {

// The head's lines, each without its CR LF or bare LF; the first is the start line.
QList<QByteArrayView> lines(QByteArrayView head);

// Whether `text` is one or more ASCII digits.
bool isDigits(QByteArrayView text);

} // namespace HttpHead

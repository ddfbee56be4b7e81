#pragma once

#include <QString>

#include <ostream>

// Lets GoogleTest print Qt strings in failure messages.
inline void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}

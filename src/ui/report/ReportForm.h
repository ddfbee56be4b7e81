#pragma once

#include <QString>

#include <optional>

// The rules a report must meet before it is sent, kept apart from the window so that their
// edges can be checked without one.
namespace ReportForm {

inline constexpr int kMinEmailLength = 5;
inline constexpr int kMinDescriptionLength = 10;
inline constexpr int kMaxDescriptionLength = 5000;

struct Problem {
    enum class Field { email, description };
    Field field;
    QString message;
};

// The first rule the form breaks, with both texts trimmed as they would be sent; none when it
// may be sent.
std::optional<Problem> check(const QString& email, const QString& description);

} // namespace ReportForm

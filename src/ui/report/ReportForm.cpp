#include "ui/report/ReportForm.h"

#include "support/UiText.h"

namespace ReportForm {

std::optional<Problem> check(const QString& email, const QString& description)
{
    const QString address = email.trimmed();
    const QString words = description.trimmed();
    if (!address.contains(u'@') || address.size() < kMinEmailLength)
        return Problem{Problem::Field::email, uiText("We need an email address to reply to.")};
    if (words.size() < kMinDescriptionLength) {
        return Problem{Problem::Field::description,
                       uiText("Tell us a little more about what went wrong.")};
    }
    if (words.size() > kMaxDescriptionLength) {
        return Problem{Problem::Field::description,
                       uiText("That is longer than we can accept — keep it under %1 characters "
                              "and we will ask for the rest.")
                           .arg(kMaxDescriptionLength)};
    }
    return std::nullopt;
}

} // namespace ReportForm

#include "support/UiText.h"

#include <QCoreApplication>

QString uiText(const char* english)
{
    return QCoreApplication::translate(uiTextContext, english);
}

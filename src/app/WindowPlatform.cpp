#include "app/WindowPlatform.h"

#include <QByteArray>
#include <QtGlobal>

void preferX11WindowPlatform()
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && !qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "xcb");
}

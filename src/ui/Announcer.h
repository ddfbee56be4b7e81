#pragma once

#include <QObject>
#include <QString>

// Speaks short texts to screen-reader users. Qt has no announcement request, so this is an
// accessible object of its own (a notification with no window to land on) whose name and
// value become the text; the change events reach the screen reader over AT-SPI.
class Announcer : public QObject {
    Q_OBJECT
public:
    explicit Announcer(QObject* parent = nullptr);

    void post(const QString& text);
    const QString& text() const { return m_text; }

private:
    QString m_text;
};

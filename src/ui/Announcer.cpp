#include "ui/Announcer.h"

#include <QAccessible>
#include <QAccessibleObject>
#include <QAccessibleValueInterface>

namespace {

class AccessibleAnnouncer : public QAccessibleObject, public QAccessibleValueInterface {
public:
    explicit AccessibleAnnouncer(Announcer* announcer)
        : QAccessibleObject(announcer)
    {
    }

    QAccessibleInterface* parent() const override { return nullptr; }
    int childCount() const override { return 0; }
    QAccessibleInterface* child(int) const override { return nullptr; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QAccessible::Role role() const override { return QAccessible::Notification; }
    QAccessible::State state() const override
    {
        QAccessible::State state;
        state.readOnly = true;
        return state;
    }
    QString text(QAccessible::Text t) const override
    {
        return t == QAccessible::Name || t == QAccessible::Value ? announcer()->text() : QString();
    }
    void* interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface*>(this);
        return QAccessibleObject::interface_cast(type);
    }

    QVariant currentValue() const override { return announcer()->text(); }
    void setCurrentValue(const QVariant&) override {}
    QVariant maximumValue() const override { return {}; }
    QVariant minimumValue() const override { return {}; }
    QVariant minimumStepSize() const override { return {}; }

private:
    Announcer* announcer() const { return static_cast<Announcer*>(object()); }
};

QAccessibleInterface* makeAccessible(const QString& className, QObject* object)
{
    if (className == QLatin1String("Announcer"))
        return new AccessibleAnnouncer(static_cast<Announcer*>(object));
    return nullptr;
}

} // namespace

Announcer::Announcer(QObject* parent)
    : QObject(parent)
{
    static const bool installed = [] {
        QAccessible::installFactory(makeAccessible);
        return true;
    }();
    Q_UNUSED(installed);
}

void Announcer::post(const QString& text)
{
    m_text = text;
    QAccessibleEvent nameChanged(this, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&nameChanged);
    QAccessibleValueChangeEvent valueChanged(this, text);
    QAccessible::updateAccessibility(&valueChanged);
}

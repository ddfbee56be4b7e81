#include "ui/panel/VolumeSlider.h"

#include <QAccessibleValueInterface>
#include <QAccessibleWidget>
#include <QLocale>

namespace {

class AccessibleVolumeSlider : public QAccessibleWidget, public QAccessibleValueInterface {
public:
    explicit AccessibleVolumeSlider(VolumeSlider* slider)
        : QAccessibleWidget(slider, QAccessible::Slider)
    {
    }

    QString text(QAccessible::Text t) const override
    {
        if (t == QAccessible::Value)
            return slider()->spokenValue();
        return QAccessibleWidget::text(t);
    }
    void* interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface*>(this);
        return QAccessibleWidget::interface_cast(type);
    }

    QVariant currentValue() const override { return slider()->value(); }
    void setCurrentValue(const QVariant& value) override { slider()->setValue(value.toInt()); }
    QVariant maximumValue() const override { return slider()->maximum(); }
    QVariant minimumValue() const override { return slider()->minimum(); }
    QVariant minimumStepSize() const override { return slider()->singleStep(); }

private:
    VolumeSlider* slider() const { return static_cast<VolumeSlider*>(widget()); }
};

QAccessibleInterface* makeAccessible(const QString& className, QObject* object)
{
    if (className == QLatin1String("VolumeSlider"))
        return new AccessibleVolumeSlider(static_cast<VolumeSlider*>(object));
    return nullptr;
}

} // namespace

VolumeSlider::VolumeSlider(QWidget* parent)
    : QSlider(Qt::Horizontal, parent)
{
    static const bool installed = [] {
        QAccessible::installFactory(makeAccessible);
        return true;
    }();
    Q_UNUSED(installed);
    setRange(0, 100);
    setSingleStep(1);
    setPageStep(10);
    setFocusPolicy(Qt::StrongFocus);
}

QString VolumeSlider::spokenValue() const
{
    const QLocale locale;
    return locale.toString(value()) + locale.percent();
}

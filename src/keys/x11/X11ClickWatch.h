#pragma once

#include <QPoint>

#include <functional>
#include <memory>

class X11Connection;

// Button presses of every pointer on the X server (XInput 2 raw events on the root window),
// wherever they land, in other programs' windows and in ours; they still reach their window.
class X11ClickWatch {
public:
    using OnClick = std::function<void(QPoint screenPosition)>;

    // None when there is no X server or it lacks XInput 2.2.
    static std::unique_ptr<X11ClickWatch> start(OnClick onClick);
    ~X11ClickWatch();

private:
    X11ClickWatch(std::unique_ptr<X11Connection> x, OnClick onClick);
    void buttonPressed(int button);
    QPoint pointerPosition() const;

    std::unique_ptr<X11Connection> m_x;
    OnClick m_onClick;
};

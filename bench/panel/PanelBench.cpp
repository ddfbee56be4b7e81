// Prints how quickly the panel opens and takes a snapshot, and how much memory opening it
// again and again keeps. Asserts nothing. Run under an X server (see `run`).
#include "ui/panel/MenuBarPanel.h"

#include <QApplication>
#include <QBuffer>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QWidget>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

namespace {

// Notes when the widget it watches has been sent a paint event.
class PaintWatch : public QObject {
public:
    bool painted = false;

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::Paint)
            painted = true;
        return false;
    }
};

void spinUntil(const std::function<bool()>& done)
{
    QDeadlineTimer deadline(10000);
    while (!done() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
}

void spinFor(int ms)
{
    QDeadlineTimer deadline(ms);
    while (!deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

long residentKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

QByteArray coverArt()
{
    QImage image(600, 600, QImage::Format_RGB32);
    image.fill(QColor(200, 90, 40));
    QPainter(&image).fillRect(0, 400, 600, 200, QColor(30, 30, 50));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPG");
    return bytes;
}

PanelSnapshot connected(int n)
{
    PanelSnapshot s;
    s.connected = true;
    s.speakerName = QStringLiteral("Living Room");
    s.volume = n % 101;
    s.night = n % 2 == 0;
    s.speech = false;
    s.title = QStringLiteral("Track %1").arg(n);
    s.subtitle = QStringLiteral("An Artist");
    s.detail = QStringLiteral("An Album \u2014 Living Room");
    s.isPlaying = true;
    s.canControlTransport = true;
    s.artworkIdentity = QStringLiteral("art-%1").arg(n / 50);
    s.artwork = coverArt();
    s.warning = n % 3 == 0 ? QStringLiteral("A warning") : QString();
    s.generation = quint64(n);
    return s;
}

double threadCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size())))];
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    Settings saved;
    MenuBarPanel panel(saved);
    PaintWatch watch;
    panel.window()->installEventFilter(&watch);
    panel.apply(connected(0));

    std::vector<double> openMs;
    long afterFirst = 0;
    for (int round = 0; round < 10; ++round) {
        watch.painted = false;
        QElapsedTimer clock;
        clock.start();
        panel.present();
        spinUntil([&] { return watch.painted; });
        openMs.push_back(double(clock.nsecsElapsed()) / 1e6);
        spinFor(50);
        panel.close();
        spinFor(50);
        if (round == 0)
            afterFirst = residentKb();
    }
    const long afterTen = residentKb();

    panel.present();
    spinFor(100);
    // The main thread's own CPU time is what apply costs; the wall clock also counts the
    // time other processes of a busy machine took the processor.
    std::vector<double> applyCpuMs;
    std::vector<double> applyWallMs;
    for (int n = 1; n <= 200; ++n) {
        const PanelSnapshot snapshot = connected(n);
        QElapsedTimer clock;
        const double cpuBefore = threadCpuMs();
        clock.start();
        panel.apply(snapshot);
        applyWallMs.push_back(double(clock.nsecsElapsed()) / 1e6);
        applyCpuMs.push_back(threadCpuMs() - cpuBefore);
        QCoreApplication::processEvents();
    }
    panel.close();

    std::printf("panel open to first paint: first %.1f ms, median %.1f ms of %zu\n", openMs[0],
                percentile(openMs, 0.5), openMs.size());
    std::printf("apply of a changed snapshot while open, main-thread CPU time: median %.3f ms, "
                "p99 %.3f ms (200 applies)\n",
                percentile(applyCpuMs, 0.5), percentile(applyCpuMs, 0.99));
    std::printf("  the same by the wall clock: median %.3f ms, p99 %.3f ms\n",
                percentile(applyWallMs, 0.5), percentile(applyWallMs, 0.99));
    std::printf("resident memory: %ld kB after the first open and close, %ld kB after ten "
                "(%+ld kB)\n",
                afterFirst, afterTen, afterTen - afterFirst);
    return 0;
}

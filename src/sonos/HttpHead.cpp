#include "sonos/HttpHead.h"

namespace HttpHead {

QList<QByteArrayView> lines(QByteArrayView head)
{
    QList<QByteArrayView> found;
    for (qsizetype start = 0; start <= head.size();) {
        qsizetype end = head.indexOf('\n', start);
        if (end < 0)
            end = head.size();
        QByteArrayView line = head.sliced(start, end - start);
        if (line.endsWith('\r'))
            line.chop(1);
        found.append(line);
        start = end + 1;
    }
    return found;
}

bool isDigits(QByteArrayView text)
{
    if (text.isEmpty())
        return false;
    for (const char c : text)
        if (c < '0' || c > '9')
            return false;
    return true;
}

} // namespace HttpHead

#include "progressdisplay.h"

#include <QtGlobal>

#include <cstdio>
#include <unistd.h>

namespace
{

void sayLine(const QString& text)
{
    std::fputs(qUtf8Printable(text + QLatin1Char('\n')), stderr);
    std::fflush(stderr);
}

} // namespace

ProgressDisplay::ProgressDisplay(const char* verb, int segments, bool quiet)
    : verb(verb), segments(segments), quiet(quiet), terminal(::isatty(2) == 1)
{
}

void ProgressDisplay::update(int percent, qint64 elapsedMs, const TransferWatch::State& line)
{
    if (quiet)
        return;
    if (!terminal) {
        if (percent > 0 && percent != shownPercent) {
            shownPercent = percent;
            sayLine(QStringLiteral("progress %1%").arg(percent));
        }
        if (line.retries > shownRetries) {
            shownRetries = line.retries;
            sayLine(line.segment > 0 ? QStringLiteral("retrying segment %1").arg(line.segment)
                                     : QStringLiteral("retrying"));
        }
        return;
    }
    const int width = 30;
    const int filled = qBound(0, percent * width / 100, width);
    QString text = QStringLiteral("%1 [%2%3] %4%")
                       .arg(QLatin1String(verb))
                       .arg(QString(filled, QLatin1Char('#')))
                       .arg(QString(width - filled, QLatin1Char('.')))
                       .arg(percent, 3);
    if (line.segment > 0)
        text += QStringLiteral("  segment %1/%2").arg(line.segment).arg(segments);
    if (line.retrying)
        text += QStringLiteral("  retrying");
    else if (percent > 0 && percent < 100)
        text += QStringLiteral("  about %1 s left")
                    .arg(qRound(double(elapsedMs) * (100 - percent) / percent / 1000.0));
    shownPercent = percent;
    draw(text);
}

void ProgressDisplay::line(const QString& text)
{
    const QString keep = drawnText;
    clear();
    sayLine(text);
    if (!keep.isEmpty())
        draw(keep);
}

void ProgressDisplay::finish()
{
    clear();
}

void ProgressDisplay::draw(const QString& text)
{
    if (drawn && text == drawnText)
        return;
    std::fprintf(stderr, "\r\033[K%s", qPrintable(text));
    std::fflush(stderr);
    drawnText = text;
    drawn = true;
}

void ProgressDisplay::clear()
{
    if (!drawn)
        return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    drawn = false;
    drawnText.clear();
}

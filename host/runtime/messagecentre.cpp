#include "host/runtime/messagecentre.h"

#include <QStringList>
#include <mutex>

#include <cstdio>

MessageCentre::MessageCentre(QObject* parent) : QObject(parent) {}

void MessageCentre::setQuiet(bool on)
{
    std::lock_guard<std::mutex> lock(mutex);
    quiet = on;
}

QList<MessageCentre::Message> MessageCentre::messages() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return shown;
}

QStringList MessageCentre::texts() const
{
    QStringList result;
    for (const Message& message : messages())
        result << message.text;
    return result;
}

void MessageCentre::clear()
{
    std::lock_guard<std::mutex> lock(mutex);
    shown.clear();
}

void MessageCentre::showMessageAsync(QString title, QString text, bool flag)
{
    std::lock_guard<std::mutex> lock(mutex);
    shown.append(Message{title, text, flag});
    if (!quiet) {
        std::fprintf(stderr, "%s: %s\n", qUtf8Printable(title), qUtf8Printable(text));
        std::fflush(stderr);
    }
}

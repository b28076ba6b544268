#include "host/runtime/messagecentre.h"

#include <QMutexLocker>
#include <QStringList>

#include <cstdio>

MessageCentre::MessageCentre(QObject* parent) : QObject(parent) {}

void MessageCentre::setQuiet(bool on)
{
    QMutexLocker lock(&mutex);
    quiet = on;
}

QList<MessageCentre::Message> MessageCentre::messages() const
{
    QMutexLocker lock(&mutex);
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
    QMutexLocker lock(&mutex);
    shown.clear();
}

void MessageCentre::showMessageAsync(QString title, QString text, bool flag)
{
    QMutexLocker lock(&mutex);
    shown.append(Message{title, text, flag});
    if (!quiet) {
        std::fprintf(stderr, "%s: %s\n", qUtf8Printable(title), qUtf8Printable(text));
        std::fflush(stderr);
    }
}

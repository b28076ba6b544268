#ifndef HOST_MESSAGECENTRE_H
#define HOST_MESSAGECENTRE_H

#include <QList>
#include <QObject>
#include <QString>
#include <mutex>

// The runtime's message centre as the driver sees it: it shows a titled
// message. Ours prints "title: text" on stderr (unless quiet) and keeps
// every message for whoever wants to look at them later.
class MessageCentre : public QObject
{
    Q_OBJECT

public:
    struct Message {
        QString title;
        QString text;
        bool flag;
    };

    explicit MessageCentre(QObject* parent = nullptr);

    void setQuiet(bool on);
    // Thread-safe copies of what has been shown so far.
    QList<Message> messages() const;
    // The texts alone, in order.
    QStringList texts() const;
    void clear();

public slots:
    // The flag is kept but not interpreted.
    void showMessageAsync(QString title, QString text, bool flag);

private:
    mutable std::mutex mutex;
    QList<Message> shown;
    bool quiet = false;
};

#endif

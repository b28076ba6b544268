#ifndef TESTS_THREADRUNNER_H
#define TESTS_THREADRUNNER_H

#include <QObject>
#include <QThread>

#include <deque>
#include <functional>
#include <mutex>

// Runs jobs later in another object's thread, the way a queued call would,
// but hands the job over under a std::mutex: ThreadSanitizer sees that
// hand-over, where it cannot see Qt's own post-event queue.
class ThreadRunner : public QObject
{
    Q_OBJECT

public:
    explicit ThreadRunner(QThread* thread) { moveToThread(thread); }
    ~ThreadRunner() override
    {
        std::lock_guard<std::mutex> lock(mutex);
        jobs.clear();
    }

    void post(std::function<void()> job)
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            jobs.push_back(std::move(job));
        }
        QMetaObject::invokeMethod(this, "runOne", Qt::QueuedConnection);
    }

private slots:
    void runOne()
    {
        std::function<void()> job;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (jobs.empty())
                return;
            job = std::move(jobs.front());
            jobs.pop_front();
        }
        job();
    }

private:
    std::mutex mutex;
    std::deque<std::function<void()>> jobs;
};

#endif

// The event loop of a run, which ends even when the updater does not end it.
//
//   QCOMPARE(exitStatusOf([&] { updater.start(false); }), 0);
#ifndef TESTS_SUPPORT_EVENTLOOP_H
#define TESTS_SUPPORT_EVENTLOOP_H

#include <QCoreApplication>
#include <QTimer>

/// The exit status of an event loop that nothing else has ended.
constexpr int endless = 124;

/// Runs the event loop, for a minute at the most.
/// @return The exit status that was asked for, or endless.
inline int runEventLoop()
{
    QTimer guard;
    QObject::connect(&guard, &QTimer::timeout, &guard, [] { QCoreApplication::exit(endless); });
    guard.start(60000);
    return QCoreApplication::exec();
}

/// Runs the event loop and calls @p step in it, as the downloads do.
/// @return The exit status that was asked for, or endless.
template <typename Step> int exitStatusOf(Step step)
{
    QTimer::singleShot(0, QCoreApplication::instance(), step);
    return runEventLoop();
}

#endif // TESTS_SUPPORT_EVENTLOOP_H

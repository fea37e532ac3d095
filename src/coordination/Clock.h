#pragma once

// Where the coordination layer reads the time and waits: the system clock in
// the program; a clock a test advances by hand, so that delays are exact and
// no test depends on how busy the machine is.
//
// Threading: timers fire on the thread that made them (the main thread).

#include <QDateTime>
#include <chrono>
#include <functional>
#include <memory>

namespace vistrel {

class ClockTimer {
public:
    virtual ~ClockTimer() = default;
    // (Re)starts the wait; the callback runs once it has passed.
    virtual void start(std::chrono::milliseconds delay) = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;
};

class Clock {
public:
    virtual ~Clock() = default;
    // The current date and time in UTC.
    virtual QDateTime now() const = 0;
    // A single-shot timer calling `fire`; destroying it stops it.
    virtual std::unique_ptr<ClockTimer> makeTimer(std::function<void()> fire) = 0;

    // The real clock, with precise timers: the delays are short and
    // user-visible, and a coarse timer may shift them by milliseconds.
    static Clock& system();
};

} // namespace vistrel

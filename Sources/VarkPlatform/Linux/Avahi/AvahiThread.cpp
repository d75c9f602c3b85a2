#include "VarkPlatform/Linux/Avahi/AvahiThread.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "VarkPlatform/Linux/SignalsBlocked.h"

namespace vark {

AvahiThread::AvahiThread() : poll_(avahi_simple_poll_new()), bell_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!poll_) throw std::bad_alloc();
    if (!bell_) throw FileError("Could not watch", "the local network", errno);
    const AvahiWatch* watch = poll()->watch_new(
        poll(), bell_.get(), AVAHI_WATCH_IN,
        [](AvahiWatch*, int, AvahiWatchEvent, void* self) { static_cast<AvahiThread*>(self)->runPosted(); },
        this);
    if (watch == nullptr) throw std::bad_alloc();
    const SignalsBlocked blocked;
    thread_ = std::thread([this] {
        constexpr int withoutLimit = -1;
        while (avahi_simple_poll_iterate(poll_.get(), withoutLimit) == 0) {
        }
    });
}

void AvahiThread::post(std::function<void()> work) {
    {
        Locked hold(lock_);
        posted_.push_back(std::move(work));
    }
    eventfd_write(bell_.get(), 1);
}

void AvahiThread::end() {
    if (!thread_.joinable()) return;
    post([this] { avahi_simple_poll_quit(poll_.get()); });
    thread_.join();
}

void AvahiThread::runPosted() {
    eventfd_t rung = 0;
    eventfd_read(bell_.get(), &rung);
    std::vector<std::function<void()>> posted;
    {
        Locked hold(lock_);
        posted.swap(posted_);
    }
    for (const std::function<void()>& work : posted)
        work();
}

}  // namespace vark

#include "VarkBox/Nodes/AvahiAnnouncer.h"

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/thread-watch.h>
#include <avahi-common/timeval.h>

#include <new>
#include <ranges>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark::box {
namespace {

constexpr const char* serviceType = "_vark-node._tcp";
/// How often a bus that cannot be reached is tried.
constexpr unsigned millisecondsBetweenTries = 2000;

template <auto function>
struct Calls {
    template <class T>
    void operator()(T* object) const noexcept {
        function(object);
    }
};
using Poll = std::unique_ptr<AvahiThreadedPoll, Calls<avahi_threaded_poll_free>>;
using Client = std::unique_ptr<AvahiClient, Calls<avahi_client_free>>;
using StringList = std::unique_ptr<AvahiStringList, Calls<avahi_string_list_free>>;

StringList asStringList(const std::vector<std::pair<std::string, std::string>>& text) {
    StringList list;
    // A list grows at its front.
    for (const auto& [key, value] : text | std::views::reverse) {
        AvahiStringList* longer = avahi_string_list_add_pair(list.get(), key.c_str(), value.c_str());
        if (longer == nullptr) throw std::bad_alloc();
        (void)list.release();
        list.reset(longer);
    }
    return list;
}

}  // namespace

/// Everything but `trouble` happens on the thread of the poll, or while that does not run.
class AvahiAnnouncer::Machinery {
  public:
    explicit Machinery(Announcement announcement)
        : announcement_(std::move(announcement)), poll_(avahi_threaded_poll_new()) {
        if (!poll_) throw std::bad_alloc();
        const AvahiPoll* poll = avahi_threaded_poll_get(poll_.get());
        retry_ = poll->timeout_new(
            poll, nullptr, [](AvahiTimeout*, void* self) { static_cast<Machinery*>(self)->connect(); }, this);
        connect();
        avahi_threaded_poll_start(poll_.get());
    }
    ~Machinery() {
        avahi_threaded_poll_stop(poll_.get());
        // The daemon says goodbye for a client that leaves.
        client_.reset();
        avahi_threaded_poll_get(poll_.get())->timeout_free(retry_);
    }
    Machinery(const Machinery&) = delete;
    Machinery& operator=(const Machinery&) = delete;

    std::optional<std::string> trouble() const {
        Locked hold(lock_);
        return trouble_;
    }

  private:
    void setTrouble(std::optional<std::string> trouble) {
        Locked hold(lock_);
        trouble_ = std::move(trouble);
    }

    void connect() {
        group_ = nullptr;
        client_.reset();
        int error = 0;
        client_.reset(avahi_client_new(
            avahi_threaded_poll_get(poll_.get()), AVAHI_CLIENT_NO_FAIL,
            [](AvahiClient* client, AvahiClientState state, void* self) {
                static_cast<Machinery*>(self)->clientChanged(client, state);
            },
            this, &error));
        if (client_) return;
        setTrouble("The system's bus cannot be reached (" + std::string(avahi_strerror(error)) +
                   "). Install and start dbus and avahi-daemon.");
        connectAfter(millisecondsBetweenTries);
    }

    /// Never at once: the library does not let a client be freed while it calls back.
    void connectAfter(unsigned milliseconds) {
        timeval when{};
        avahi_elapse_time(&when, milliseconds, 0);
        avahi_threaded_poll_get(poll_.get())->timeout_update(retry_, &when);
    }

    void clientChanged(AvahiClient* client, AvahiClientState state) {
        switch (state) {
            case AVAHI_CLIENT_S_RUNNING:
                announce(client);
                return;
            case AVAHI_CLIENT_S_REGISTERING:
            case AVAHI_CLIENT_S_COLLISION:
                // The machine gets a new name, and the announcement is made again when it has it.
                setTrouble("avahi-daemon is still looking for a name for this machine.");
                if (group_ != nullptr) avahi_entry_group_reset(group_);
                return;
            case AVAHI_CLIENT_CONNECTING:
                setTrouble("avahi-daemon is not running. Start it, and the announcement follows.");
                return;
            case AVAHI_CLIENT_FAILURE:
                fail(client);
                connectAfter(avahi_client_errno(client) == AVAHI_ERR_DISCONNECTED ? 0
                                                                                  : millisecondsBetweenTries);
                return;
        }
    }

    void announce(AvahiClient* client) {
        setTrouble("The announcement is under way.");
        if (group_ == nullptr) {
            group_ = avahi_entry_group_new(
                client,
                [](AvahiEntryGroup* group, AvahiEntryGroupState state, void* self) {
                    static_cast<Machinery*>(self)->groupChanged(group, state);
                },
                this);
        }
        if (group_ == nullptr) return fail(client);
        avahi_entry_group_reset(group_);
        const StringList text = asStringList(announcement_.text);
        int result = AVAHI_ERR_COLLISION;
        while (
            (result = avahi_entry_group_add_service_strlst(
                 group_, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags{}, announcement_.name.c_str(),
                 serviceType, nullptr, nullptr, announcement_.port, text.get())) == AVAHI_ERR_COLLISION)
            takeAnotherName();
        if (result < 0 || avahi_entry_group_commit(group_) < 0) fail(client);
    }

    void groupChanged(AvahiEntryGroup* group, AvahiEntryGroupState state) {
        AvahiClient* client = avahi_entry_group_get_client(group);
        switch (state) {
            case AVAHI_ENTRY_GROUP_ESTABLISHED:
                setTrouble(std::nullopt);
                return;
            case AVAHI_ENTRY_GROUP_COLLISION:
                takeAnotherName();
                announce(client);
                return;
            case AVAHI_ENTRY_GROUP_FAILURE:
                fail(client);
                return;
            case AVAHI_ENTRY_GROUP_UNCOMMITED:
            case AVAHI_ENTRY_GROUP_REGISTERING:
                return;
        }
    }

    void takeAnotherName() {
        const std::unique_ptr<char, Calls<avahi_free>> name(
            avahi_alternative_service_name(announcement_.name.c_str()));
        if (!name) throw std::bad_alloc();
        announcement_.name = name.get();
    }

    void fail(AvahiClient* client) {
        setTrouble("avahi-daemon does not announce this node: " +
                   std::string(avahi_strerror(avahi_client_errno(client))) + ".");
    }

    Announcement announcement_;
    mutable Mutex lock_;
    std::optional<std::string> trouble_ VARK_GUARDED_BY(lock_) = "The announcement is under way.";
    // The client goes before the poll, and its group with it.
    const Poll poll_;
    AvahiTimeout* retry_ = nullptr;
    Client client_;
    AvahiEntryGroup* group_ = nullptr;
};

AvahiAnnouncer::AvahiAnnouncer(Announcement announcement)
    : machinery_(std::make_unique<Machinery>(std::move(announcement))) {}

AvahiAnnouncer::~AvahiAnnouncer() = default;

std::optional<std::string> AvahiAnnouncer::trouble() const {
    return machinery_->trouble();
}

}  // namespace vark::box

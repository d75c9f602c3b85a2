#include "VarkPlatform/Linux/Secrets/SecretServiceStore.h"

#include <libsecret/secret.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "VarkPlatform/Linux/Secrets/SecretOperation.h"

namespace vark {
namespace {

struct Unreference {
    void operator()(void* object) const { g_object_unref(object); }
};
template <class T>
using Owned = std::unique_ptr<T, Unreference>;

struct ReleaseTable {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
struct ReleaseValue {
    void operator()(SecretValue* value) const { secret_value_unref(value); }
};
using Attributes = std::unique_ptr<GHashTable, ReleaseTable>;
using Value = std::unique_ptr<SecretValue, ReleaseValue>;

constexpr const char* textType = "text/plain";

/// Under what attributes our secrets are kept. Looking for one goes by the attributes alone.
const SecretSchema& schema() {
    static const SecretSchema schema = [] {
        SecretSchema made{};
        made.name = "dev.vark.Secret";
        made.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        made.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return made;
    }();
    return schema;
}

/// `name` outlives what it gives.
Attributes attributesOf(const SecretName& name) {
    auto text = [](const std::string& of) { return const_cast<char*>(of.c_str()); };
    Attributes attributes(g_hash_table_new(g_str_hash, g_str_equal));
    static const std::string service = "service";
    static const std::string account = "account";
    g_hash_table_insert(attributes.get(), text(service), text(name.service));
    g_hash_table_insert(attributes.get(), text(account), text(name.account));
    return attributes;
}

Value valueOf(std::string_view bytes) {
    return Value(secret_value_new(bytes.data(), static_cast<gssize>(bytes.size()), textType));
}

using Ended = SecretOperation::Ended;

std::int32_t statusFor(const GError& error) {
    if (error.domain == SECRET_ERROR && error.code == SECRET_ERROR_IS_LOCKED) return SecretStatus::locked;
    if (error.domain == G_DBUS_ERROR) {
        switch (error.code) {
            case G_DBUS_ERROR_NO_REPLY:
            case G_DBUS_ERROR_TIMEOUT:
            case G_DBUS_ERROR_TIMED_OUT:
                return SecretStatus::noAnswer;
            case G_DBUS_ERROR_SERVICE_UNKNOWN:
            case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
            case G_DBUS_ERROR_NO_SERVER:
            case G_DBUS_ERROR_SPAWN_EXEC_FAILED:
            case G_DBUS_ERROR_SPAWN_CHILD_EXITED:
            case G_DBUS_ERROR_SPAWN_CHILD_SIGNALED:
            case G_DBUS_ERROR_SPAWN_SERVICE_NOT_FOUND:
                return SecretStatus::absent;
            default:
                return SecretStatus::failed;
        }
    }
    if (error.domain != G_IO_ERROR) return SecretStatus::failed;
    // A call is cancelled by its patience alone; everything else of this kind is a bus that is not there.
    const bool tookTooLong = error.code == G_IO_ERROR_CANCELLED || error.code == G_IO_ERROR_TIMED_OUT;
    return tookTooLong ? SecretStatus::noAnswer : SecretStatus::absent;
}

/// Takes what a call of the library says went wrong.
class Trouble {
  public:
    Trouble() = default;
    Trouble(const Trouble&) = delete;
    Trouble& operator=(const Trouble&) = delete;
    ~Trouble() { g_clear_error(&error_); }

    operator GError**() { return &error_; }
    /// Ends the operation if there was any.
    void check() const {
        if (error_ != nullptr) throw Ended{statusFor(*error_)};
    }

  private:
    GError* error_ = nullptr;
};

/// Waits for a call of the library that asks the person and ends in a callback, and for all that is to be
/// done after that: where the library waits by itself, it leaves a piece of the question behind.
class QuestionEnd {
  public:
    QuestionEnd() : context_(g_main_context_new()), loop_(g_main_loop_new(context_, FALSE)) {
        g_main_context_push_thread_default(context_);
    }
    ~QuestionEnd() {
        result_.reset();
        while (g_main_context_iteration(context_, FALSE)) {
        }
        g_main_context_pop_thread_default(context_);
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
    }
    QuestionEnd(const QuestionEnd&) = delete;
    QuestionEnd& operator=(const QuestionEnd&) = delete;

    /// The callback, to which this object is handed.
    static void reached(GObject*, GAsyncResult* result, void* end) {
        auto* self = static_cast<QuestionEnd*>(end);
        self->result_.reset(G_ASYNC_RESULT(g_object_ref(result)));
        g_main_loop_quit(self->loop_);
    }
    GAsyncResult* result() {
        g_main_loop_run(loop_);
        return result_.get();
    }

  private:
    GMainContext* context_;
    GMainLoop* loop_;
    Owned<GAsyncResult> result_;
};

/// One operation with the service: what it may take of time, and the service itself.
class Conversation {
  public:
    explicit Conversation(Duration patience)
        : cancellable_(g_cancellable_new()), alarm_([this, patience](std::stop_token ended) {
              std::unique_lock hold(lock_);
              const bool isOver = asked_.wait_for(hold, ended, patience, [] { return false; });
              if (!isOver && !ended.stop_requested()) g_cancellable_cancel(cancellable_.get());
          }) {
        Trouble noBus;
        bus_.reset(g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable_.get(), noBus));
        noBus.check();
        // The end of the person's session is no reason for this process to end.
        g_dbus_connection_set_exit_on_close(bus_.get(), FALSE);
        Trouble noService;
        service_.reset(secret_service_open_sync(SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_NONE,
                                                cancellable_.get(), noService));
        noService.check();
    }

    /// Nothing when there is none.
    Owned<SecretCollection> defaultCollection() {
        Trouble trouble;
        Owned<SecretCollection> collection(secret_collection_for_alias_sync(
            service_.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, cancellable_.get(), trouble));
        trouble.check();
        return collection;
    }

    /// All that have the name and are not locked. Ends the operation when there are only locked ones, or when
    /// the default collection is locked or away and would not say.
    std::vector<Owned<SecretItem>> openItems(const SecretName& name) {
        const Attributes attributes = attributesOf(name);
        Trouble trouble;
        GList* found = secret_service_search_sync(service_.get(), nullptr, attributes.get(),
                                                  SECRET_SEARCH_ALL, cancellable_.get(), trouble);
        std::vector<Owned<SecretItem>> items;
        bool someAreLocked = false;
        for (GList* place = found; place != nullptr; place = place->next) {
            Owned<SecretItem> item(SECRET_ITEM(place->data));
            if (secret_item_get_locked(item.get())) {
                someAreLocked = true;
            } else {
                items.push_back(std::move(item));
            }
        }
        g_list_free(found);
        trouble.check();
        if (!items.empty()) return items;
        if (!someAreLocked) {
            const Owned<SecretCollection> collection = defaultCollection();
            // A manager that is closed shows none, and has its secrets all the same.
            if (!collection) throw Ended{SecretStatus::noKeyring};
            someAreLocked = secret_collection_get_locked(collection.get());
        }
        if (someAreLocked) throw Ended{SecretStatus::locked};
        throw Ended{SecretStatus::notFound};
    }

    std::string bytesOf(SecretItem& item) {
        Trouble trouble;
        secret_item_load_secret_sync(&item, cancellable_.get(), trouble);
        trouble.check();
        const Value value(secret_item_get_secret(&item));
        if (!value) throw Ended{SecretStatus::locked};
        gsize size = 0;
        const char* bytes = secret_value_get(value.get(), &size);
        return {bytes, size};
    }

    void setBytes(SecretItem& item, std::string_view bytes) {
        Trouble trouble;
        secret_item_set_secret_sync(&item, valueOf(bytes).get(), cancellable_.get(), trouble);
        trouble.check();
    }

    void add(const SecretName& name, const std::string& label, std::string_view bytes) {
        const Owned<SecretCollection> collection = defaultCollection();
        if (!collection) throw Ended{SecretStatus::noKeyring};
        const Attributes attributes = attributesOf(name);
        Trouble trouble;
        const Owned<SecretItem> made(secret_item_create_sync(
            collection.get(), &schema(), attributes.get(), label.c_str(), valueOf(bytes).get(),
            SECRET_ITEM_CREATE_NONE, cancellable_.get(), trouble));
        trouble.check();
    }

    void remove(SecretItem& item) {
        Trouble trouble;
        secret_item_delete_sync(&item, cancellable_.get(), trouble);
        trouble.check();
    }

    // These wait for the person, for as long as it takes.

    void makeDefaultCollection() {
        QuestionEnd end;
        secret_collection_create(service_.get(), "Default keyring", SECRET_COLLECTION_DEFAULT,
                                 SECRET_COLLECTION_CREATE_NONE, nullptr, QuestionEnd::reached, &end);
        Trouble trouble;
        const Owned<SecretCollection> made(secret_collection_create_finish(end.result(), trouble));
        if (!made) throw Ended{SecretStatus::refused};
    }

    void unlock(SecretCollection& collection) {
        GList wanted{&collection, nullptr, nullptr};
        Trouble trouble;
        const int count = secret_service_unlock_sync(service_.get(), &wanted, nullptr, nullptr, trouble);
        if (count != 1) throw Ended{SecretStatus::refused};
    }

  private:
    Owned<GCancellable> cancellable_;
    Owned<GDBusConnection> bus_;
    Owned<SecretService> service_;
    std::mutex lock_;
    std::condition_variable_any asked_;
    std::jthread alarm_;
};

}  // namespace

std::int32_t SecretServiceStore::open() {
    return SecretOperation::statusOf([&] {
        Conversation service(patience_);
        const Owned<SecretCollection> collection = service.defaultCollection();
        if (!collection) {
            service.makeDefaultCollection();
        } else if (secret_collection_get_locked(collection.get())) {
            service.unlock(*collection);
        }
    });
}

SecretStore::Answer SecretServiceStore::find(const SecretName& name) {
    Answer answer;
    answer.status = SecretOperation::statusOf([&] {
        Conversation service(patience_);
        answer.bytes = service.bytesOf(*service.openItems(name).front());
    });
    return answer;
}

std::int32_t SecretServiceStore::update(const SecretName& name, std::string_view bytes) {
    return SecretOperation::statusOf([&] {
        Conversation service(patience_);
        service.setBytes(*service.openItems(name).front(), bytes);
    });
}

std::int32_t SecretServiceStore::add(const SecretName& name, std::string_view label, std::string_view bytes) {
    return SecretOperation::statusOf([&] { Conversation(patience_).add(name, std::string(label), bytes); });
}

std::int32_t SecretServiceStore::remove(const SecretName& name) {
    return SecretOperation::statusOf([&] {
        Conversation service(patience_);
        for (const Owned<SecretItem>& item : service.openItems(name))
            service.remove(*item);
    });
}

std::optional<std::string> SecretServiceStore::message(std::int32_t status) const {
    switch (status) {
        case SecretStatus::notText:
            return "What the keychain keeps under this name is no text.";
        case SecretStatus::absent:
            return "This machine has no keychain: no Secret Service answers.";
        case SecretStatus::noKeyring:
            return "The keychain has no keyring open: a Secret Service answers, but shows nothing to keep "
                   "secrets in.";
        case SecretStatus::locked:
            return "The keychain is locked.";
        case SecretStatus::refused:
            return "The keychain was not opened.";
        case SecretStatus::noAnswer:
            return "The keychain does not answer.";
        case SecretStatus::failed:
            return "The keychain could not do what it was asked to.";
        default:
            return std::nullopt;
    }
}

}  // namespace vark

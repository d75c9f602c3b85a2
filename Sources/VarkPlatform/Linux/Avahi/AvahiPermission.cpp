#include "VarkPlatform/Linux/Avahi/AvahiPermission.h"

#include <dbus/dbus.h>

#include <memory>

namespace vark {
namespace {

constexpr int longestAnswerInMilliseconds = 5000;

struct CloseConnection {
    void operator()(DBusConnection* connection) const noexcept {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
    }
};
struct Unreference {
    void operator()(DBusMessage* message) const noexcept { dbus_message_unref(message); }
};
using Connection = std::unique_ptr<DBusConnection, CloseConnection>;
using Message = std::unique_ptr<DBusMessage, Unreference>;

class Error {
  public:
    Error() { dbus_error_init(&error_); }
    ~Error() { dbus_error_free(&error_); }
    Error(const Error&) = delete;
    Error& operator=(const Error&) = delete;

    DBusError* get() { return &error_; }
    bool isDenial() const { return dbus_error_has_name(&error_, DBUS_ERROR_ACCESS_DENIED) != 0; }

  private:
    DBusError error_{};
};

}  // namespace

bool isAvahiForbidden() {
    Error error;
    const Connection connection(dbus_bus_get_private(DBUS_BUS_SYSTEM, error.get()));
    if (!connection) return error.isDenial();
    dbus_connection_set_exit_on_disconnect(connection.get(), FALSE);
    const Message question(dbus_message_new_method_call("org.freedesktop.Avahi", "/",
                                                        "org.freedesktop.Avahi.Server", "GetState"));
    if (!question) return false;
    // A daemon that is not running is none of this.
    dbus_message_set_auto_start(question.get(), FALSE);
    const Message answer(dbus_connection_send_with_reply_and_block(connection.get(), question.get(),
                                                                   longestAnswerInMilliseconds, error.get()));
    return error.isDenial();
}

}  // namespace vark

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VarkBox/Access/Account.h"
#include "VarkBox/HTTP/Exchange.h"

namespace vark::box {

/// Who may make a call: anybody, a device with the token, or one whose level may also change things.
enum class Door { open, reader, writer };

/// Finds what answers a request. Filled once, before the server starts; after that any thread may open
/// requests.
class Router {
  public:
    /// What stood in the place of each "{}" of the pattern.
    using Arguments = std::vector<std::string>;
    using Handler = std::function<BoxReply(const BoxRequest&, const Arguments&)>;
    using Opener = std::function<std::unique_ptr<BodySink>(const BoxRequest&, const Arguments&)>;

    /// Without an account there are open doors only.
    explicit Router(const Account* account) : account_(account) {}

    /// The handler gets the whole body, of at most 8 MiB.
    void add(std::string_view method, std::string_view pattern, Door door, Handler handler);
    /// The body goes piece by piece to the sink that the opener makes.
    void addStreamed(std::string_view method, std::string_view pattern, Door door, Opener opener);

    /// Never fails: a refusal is a sink that answers with it.
    std::unique_ptr<BodySink> open(BoxRequest request) const;

  private:
    struct Route {
        std::string method;
        std::vector<std::string> pattern;
        Door door;
        Opener opener;
    };

    std::unique_ptr<BodySink> find(const BoxRequest& request) const;
    void checkDoor(Door door, const BoxRequest& request) const;

    const Account* account_;
    std::vector<Route> routes_;
};

}  // namespace vark::box

#pragma once

#include <string_view>
#include <utility>
#include <variant>

#include "VarkCore/API/Messages/Items.h"

namespace vark {

/// What the vark says about a child of a name: here it is, there is none, or that it cannot answer, so that
/// the caller must find out another way.
class ChildAnswer {
  public:
    static ChildAnswer child(VarkItem item) { return ChildAnswer(std::move(item)); }
    static ChildAnswer none() { return ChildAnswer(None{}); }
    static ChildAnswer noRoute() { return ChildAnswer(NoRoute{}); }

    /// A bare 404 comes from a vark that has no such route; one that knows the route says in words that there
    /// is no such child. Only the second proves absence.
    static ChildAnswer from(int status, std::string_view body);

    /// Null unless there is a child.
    const VarkItem* item() const { return std::get_if<VarkItem>(&answer_); }
    bool isNone() const { return std::holds_alternative<None>(answer_); }
    bool isNoRoute() const { return std::holds_alternative<NoRoute>(answer_); }

    bool operator==(const ChildAnswer&) const = default;

  private:
    struct None {
        bool operator==(const None&) const = default;
    };
    struct NoRoute {
        bool operator==(const NoRoute&) const = default;
    };
    using Answer = std::variant<VarkItem, None, NoRoute>;
    explicit ChildAnswer(Answer answer) : answer_(std::move(answer)) {}

    Answer answer_;
};

}  // namespace vark

#pragma once

#include <string_view>

namespace vark {

/// Whether two hosts belong to one owner: they are the same, or their names stand under one domain that
/// somebody can register ("a.office.example" and "example" do not, "a.office.example" and "office.example"
/// do, two customers below "co.uk" do not). A numeric address belongs with itself alone.
bool haveOneOwner(std::string_view host, std::string_view other);

}  // namespace vark

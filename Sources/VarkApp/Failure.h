#pragma once

#include <stdexcept>
#include <utility>

#include "VarkApp/Outcome.h"
#include "VarkApp/Said.h"

namespace vark::app {

/// What was asked for cannot be done; `said` is for the person. `what()` is its text alone.
class Failure : public std::runtime_error {
  public:
    Failure(Outcome outcome, Said said)
        : std::runtime_error(said.text), outcome_(outcome), said_(std::move(said)) {}

    Outcome outcome() const { return outcome_; }
    const Said& said() const { return said_; }

  private:
    Outcome outcome_;
    Said said_;
};

}  // namespace vark::app

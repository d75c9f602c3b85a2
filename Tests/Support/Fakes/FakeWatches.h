#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Services/ClockWatch.h"
#include "VarkCore/Services/FolderWatch.h"
#include "VarkCore/Services/PathMonitor.h"

namespace vark::test {

/// A clock that jumps when the test says so.
class FakeClockWatch final : public ClockWatch {
  public:
    class Remote {
      public:
        void jump() const {
            if (jumped_) jumped_();
        }

      private:
        friend class FakeClockWatch;
        std::function<void()> jumped_;
    };

    ~FakeClockWatch() override { remote_->jumped_ = nullptr; }
    void start(std::function<void()> jumped) override { remote_->jumped_ = std::move(jumped); }
    std::shared_ptr<Remote> remote() const { return remote_; }

  private:
    std::shared_ptr<Remote> remote_ = std::make_shared<Remote>();
};

/// The watches of one test, which rings them itself, from any thread. Outlives what it makes.
class FakeFolderWatches {
  public:
    std::unique_ptr<FolderWatch> make() { return std::make_unique<Watch>(*this); }

    /// Calls whoever watches that folder.
    void ring(const std::filesystem::path& folder) {
        const Locked hold(lock_);
        for (const Watch* watch : watching_) {
            if (watch->folder_ == folder) watch->changed_();
        }
    }

  private:
    class Watch final : public FolderWatch {
      public:
        explicit Watch(FakeFolderWatches& all) : all_(all) {}
        ~Watch() override {
            const Locked hold(all_.lock_);
            std::erase(all_.watching_, this);
        }
        void start(std::filesystem::path folder, std::function<void()> changed) override {
            const Locked hold(all_.lock_);
            folder_ = std::move(folder);
            changed_ = std::move(changed);
            all_.watching_.push_back(this);
        }

      private:
        friend class FakeFolderWatches;
        FakeFolderWatches& all_;
        std::filesystem::path folder_;
        std::function<void()> changed_;
    };

    Mutex lock_;
    std::vector<const Watch*> watching_ VARK_GUARDED_BY(lock_);
};

/// A way to the network with a switch, which outlives the monitor.
class FakePathMonitor final : public PathMonitor {
  public:
    class Remote {
      public:
        /// Tells the monitor's owner, if it still listens.
        void set(bool usable) const {
            if (changed_) changed_(usable);
        }

      private:
        friend class FakePathMonitor;
        std::function<void(bool)> changed_;
    };

    ~FakePathMonitor() override { remote_->changed_ = nullptr; }
    void start(std::function<void(bool usable)> changed) override {
        remote_->changed_ = std::move(changed);
        remote_->set(true);
    }
    std::shared_ptr<Remote> remote() const { return remote_; }

  private:
    std::shared_ptr<Remote> remote_ = std::make_shared<Remote>();
};

}  // namespace vark::test

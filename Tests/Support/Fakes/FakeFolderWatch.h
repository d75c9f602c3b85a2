#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Services/FolderWatch.h"

namespace vark::test {

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

}  // namespace vark::test

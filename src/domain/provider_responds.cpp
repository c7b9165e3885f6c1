#include "domain/provider_responds.h"

#include <chrono>
#include <cmath>
#include <memory>
#include <semaphore>
#include <thread>

#include "domain/registered_domain.h"
#include "platform/folder_listing.h"
#include "platform/seam.h"

namespace {

// The longest wait a caller can ask for; beyond it a deadline would overflow the clock.
constexpr double MAX_TIMEOUT_SECONDS = 365.0 * 24 * 3600;

std::chrono::milliseconds waitFor(double seconds) {
    if (!(seconds > 0)) return std::chrono::milliseconds(0);  // also not-a-number
    seconds = std::min(seconds, MAX_TIMEOUT_SECONDS);
    return std::chrono::milliseconds(std::llround(seconds * 1000));
}

}  // namespace

void providerResponds(double timeout, std::function<void(bool)> completion) {
    findRegisteredDomain([timeout, completion = std::move(completion)](
                             std::optional<RegisteredDomain> found) mutable {
        if (!found) return completion(false);
        found->manager.getUserVisibleURL(
            [timeout, completion = std::move(completion)](
                std::optional<QString> folder, std::optional<platform::FileProviderError>) {
                if (!folder) return completion(false);
                auto answered = std::make_shared<std::counting_semaphore<>>(0);
                // The listing may never return; its thread is then left blocked and signals a
                // semaphore that nobody waits on any more.
                std::thread([answered, path = *folder] {
                    platform::current<platform::FolderListing>().list(path);
                    answered->release();
                }).detach();
                std::thread([answered, wait = waitFor(timeout), completion] {
                    completion(answered->try_acquire_for(wait));
                }).detach();
            });
    });
}

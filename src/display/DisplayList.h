#pragma once

#include "display/ExternalDisplay.h"
#include "platform/Screens.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

namespace pw {

// The published list of external monitors and its observers. The list is a value: it
// is replaced or changed whole, under a lock, and every change tells each observer once,
// with the new list. `displays()` may be read from any thread; changes are made on the
// main queue, so observers are called there.
class DisplayList {
public:
    using Observer = std::function<void(const std::vector<ExternalDisplay>&)>;
    using ObserverToken = std::uint64_t;

    std::vector<ExternalDisplay> displays() const;
    ObserverToken subscribe(Observer observer);
    void unsubscribe(ObserverToken token);

    // Applies `change` to the list (it returns whether it changed anything) and, when it
    // did, tells the observers once, without the lock held, so an observer may read the
    // list or unsubscribe.
    void change(const std::function<bool(std::vector<ExternalDisplay>&)>& change);

    // The record whose display and channel are those of `display`, or null.
    static ExternalDisplay* find(std::vector<ExternalDisplay>& list, platform::DisplayID id,
                                 std::int64_t channel);

private:
    mutable std::mutex mutex_;
    std::vector<ExternalDisplay> displays_;
    std::map<ObserverToken, Observer> observers_;
    ObserverToken nextToken_ = 1;
};

} // namespace pw

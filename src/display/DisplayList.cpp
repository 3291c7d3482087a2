#include "display/DisplayList.h"

#include <algorithm>

namespace pw {

std::vector<ExternalDisplay> DisplayList::displays() const {
    std::lock_guard lock(mutex_);
    return displays_;
}

DisplayList::ObserverToken DisplayList::subscribe(Observer observer) {
    std::lock_guard lock(mutex_);
    const auto token = nextToken_++;
    observers_.emplace(token, std::move(observer));
    return token;
}

void DisplayList::unsubscribe(ObserverToken token) {
    std::lock_guard lock(mutex_);
    observers_.erase(token);
}

void DisplayList::change(const std::function<bool(std::vector<ExternalDisplay>&)>& change) {
    std::vector<ExternalDisplay> snapshot;
    std::vector<Observer> observers;
    {
        std::lock_guard lock(mutex_);
        if (!change(displays_)) return;
        if (observers_.empty()) return;
        snapshot = displays_;
        for (const auto& entry : observers_)
            observers.push_back(entry.second);
    }
    for (const auto& observer : observers)
        observer(snapshot);
}

ExternalDisplay* DisplayList::find(std::vector<ExternalDisplay>& list, platform::DisplayID id,
                                   std::int64_t channel) {
    const auto found = std::find_if(list.begin(), list.end(), [&](const ExternalDisplay& d) {
        return d.id == id && (d.transport ? d.transport->endpointKey() : 0) == channel;
    });
    return found == list.end() ? nullptr : &*found;
}

} // namespace pw

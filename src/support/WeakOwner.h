#pragma once

#include <memory>
#include <utility>

namespace pw {

// Work queued on another thread holds its owner weakly: when it runs after the
// owner is gone it ends without effect. `weakly(owner, fn)` wraps `fn(Owner&, args...)`
// into a callable that does exactly that.
template <typename Owner, typename F> auto weakly(const std::shared_ptr<Owner>& owner, F fn) {
    return [weak = std::weak_ptr<Owner>(owner), fn = std::move(fn)](auto&&... args) mutable {
        if (auto strong = weak.lock()) fn(*strong, std::forward<decltype(args)>(args)...);
    };
}

} // namespace pw

#pragma once

// The one way an observable property of a service changes: the new value is
// stored and announced with its change signal only when it differs, so
// observers never see a change that is none.

#include <QObject>
#include <type_traits>

namespace vistrel {

// True when the value changed (and `changed` was emitted with it).
template<typename Owner, typename T, typename... SignalArgs>
bool updateProperty(Owner* owner, T& member, const std::type_identity_t<T>& value,
                    void (Owner::*changed)(SignalArgs...))
{
    if (member == value)
        return false;
    member = value;
    if constexpr (sizeof...(SignalArgs) == 0)
        Q_EMIT(owner->*changed)();
    else
        Q_EMIT(owner->*changed)(member);
    return true;
}

} // namespace vistrel

#pragma once

#include <QHostAddress>

namespace devsim
{

// Where simulated devices may live and whom they may answer. By default that is
// loopback only, so nothing leaves the machine. Inside a namespace of a test
// network, named when the simulator starts, any address assigned to a local
// interface may be used, and UDP peers on that network are answered.
class address_policy
{
public:
    // True when this process runs in the network namespace that `ip netns add`
    // made under this name (its file in /run/netns is this process's namespace).
    static bool in_named_namespace(const QString& name);

    // Allows local non-loopback addresses; refused (false) unless the process runs
    // in that named namespace, so the machine's own network is never offered.
    static bool allow_local_addresses(const QString& namespace_name, QString* error);
    static bool local_addresses_allowed();

    // An address a device may listen on: loopback, or with local addresses allowed,
    // one that an interface of this namespace carries.
    static bool may_listen_on(const QHostAddress& address);
    // A UDP peer a device may answer.
    static bool may_answer(const QHostAddress& peer);
};

} // namespace devsim

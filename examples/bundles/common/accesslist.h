// Who may connect.
#pragma once

#include <set>
#include <string>

#include <bundlemgr/export.h>
#include <bundlemgr/kit.h>

#include "configlines.h"

namespace alarms {

/// The addresses of the `acl` items of corba_start.cfg, for every service that clients
/// connect to. Without any item it holds the loopback address 127.0.0.1 only.
///
/// An entry is an IPv4 address in numbers and nothing else: names and patterns would
/// mean something else to each of the libraries behind the services. One that is not is
/// skipped, and opens nothing: a list of nothing but such entries lets nobody in. Nor does
/// a line that is too long to be read in one piece, whatever stands in it.
class ZO_PLUGIN_EXPORT AccessList {
public:
    /// @param log receives a report of each entry and each item that is skipped
    explicit AccessList(const zo::Log& log);

    /// @param address an IPv4 address in numbers, "192.0.2.7"
    bool Allows(const std::string& address) const { return m_addresses.count(address) != 0; }

    const std::set<std::string>& Addresses() const { return m_addresses; }

    /// @return the addresses, separated by blanks; "nobody" when there are none
    std::string Text() const;

private:
    void Take(const ConfigLine& item, const zo::Log& log);
    void DropWhatIsNoAddress(const zo::Log& log);

    std::set<std::string> m_addresses;
    bool m_isConfigured = false;  // there is an item that counts
};

}  // namespace alarms

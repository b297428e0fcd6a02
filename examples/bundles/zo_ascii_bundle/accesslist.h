// Who may connect.
#pragma once

#include <set>
#include <string>

namespace alarms {

/// The addresses of the `acl` items of corba_start.cfg; without any item only the
/// loopback address 127.0.0.1.
class AccessList {
public:
    AccessList();

    /// @param address an IPv4 address in numbers, "192.0.2.7"
    bool Allows(const std::string& address) const { return m_addresses.count(address) != 0; }

    /// @return the addresses, separated by blanks
    std::string Text() const;

private:
    std::set<std::string> m_addresses;
};

}  // namespace alarms

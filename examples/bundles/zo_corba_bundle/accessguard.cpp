#include "accessguard.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <string>

namespace corba_bundle {

namespace {

// What an interceptor is called with does not tell whose it is.
std::atomic<AccessGuard*> g_guard{nullptr};

void CutFront(std::string& text, const std::string& front) {
    if (text.rfind(front, 0) == 0) text.erase(0, front.size());
}

/// @param peer "giop:tcp:192.0.2.7:4711"; the address is "[::ffff:192.0.2.7]" where the
///             ORB listens for both versions of IP
/// @return "192.0.2.7"
std::string AddressOf(std::string peer) {
    CutFront(peer, "giop:tcp:");
    peer.resize(std::min(peer.size(), peer.find_last_of(':')));
    if (!peer.empty() && peer.back() == ']') peer.pop_back();
    CutFront(peer, "[");
    CutFront(peer, "::ffff:");
    return peer;
}

}  // namespace

void AccessGuard::Begin() {
    g_guard = this;
    omniORB::getInterceptors()->serverAcceptConnection.add(OnConnection);
}

void AccessGuard::End() {
    if (g_guard.exchange(nullptr) == nullptr) return;
    omniORB::getInterceptors()->serverAcceptConnection.remove(OnConnection);
}

CORBA::Boolean AccessGuard::OnConnection(Connection& connection) {
    AccessGuard* const guard = g_guard;
    if (guard == nullptr || !guard->Admits(connection.peeraddress())) {
        connection.reject = true;
        connection.why = "its address is in no acl item";
    }
    return !connection.reject;  // one that is refused is no other's business
}

bool AccessGuard::Admits(const char* peer) {
    try {
        const std::string address = AddressOf(peer);
        if (m_access.Allows(address)) return true;
        if (m_refusals.ShouldTell(address, std::chrono::steady_clock::now())) {
            ZO_ERROR(m_log, "client %s refused, its address is in no acl item\n", address.c_str());
        }
    } catch (const std::exception&) {
        // No memory: better a client too few.
    }
    return false;
}

}  // namespace corba_bundle

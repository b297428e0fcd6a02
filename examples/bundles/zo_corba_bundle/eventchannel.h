// An event channel as its supplier sees it.
#pragma once

#include <string>

#include <omniORB4/CORBA.h>
#include <omniEvents/CosEventChannelAdmin.hh>

namespace corba_bundle {

/// The channel of a given name in an event service (omniEvents), and our place in it.
/// For one thread. Its operations throw CORBA exceptions.
class EventChannel {
public:
    /// @param address host:port of the event service
    /// @param name    the channel's name there
    EventChannel(CORBA::ORB_ptr orb, const std::string& address, const std::string& name);

    /// Finds the channel, making it when the event service has none of that name, and
    /// joins it as a supplier. @return the channel, still ours
    CosEventChannelAdmin::EventChannel_ptr Connect();

    bool Connected() const { return !CORBA::is_nil(m_consumer); }

    /// Throws unless the event service is there and still knows us.
    void Check();

    void Push(const CORBA::Any& event) { m_consumer->push(event); }

    /// Forgets the connection, for the event service has, too.
    void Drop() { m_consumer = CosEventChannelAdmin::ProxyPushConsumer::_nil(); }

    /// Leaves the channel, which would else keep our place for ever.
    void Disconnect();

private:
    CosEventChannelAdmin::EventChannel_ptr Find();
    CosEventChannelAdmin::EventChannel_ptr Make();

    const CORBA::ORB_var m_orb;
    const std::string m_address;
    const std::string m_name;
    CosEventChannelAdmin::EventChannel_var m_channel;
    CosEventChannelAdmin::ProxyPushConsumer_var m_consumer;
};

}  // namespace corba_bundle

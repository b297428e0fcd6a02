#include "eventchannel.h"

#include <omniEvents/CosLifeCycle.hh>

namespace corba_bundle {

namespace {

// A burst of changes waits in the channel, per client, until the client has taken it;
// beyond this the channel throws the oldest away. Its own default is 1023.
constexpr CORBA::ULong kChannelQueueLength = 20000;

// How often the channel passes on what it has: 20 ms instead of 100.
constexpr CORBA::ULong kChannelCycleNanoseconds = 20'000'000;

}  // namespace

EventChannel::EventChannel(CORBA::ORB_ptr orb, const std::string& address, const std::string& name)
    : m_orb(CORBA::ORB::_duplicate(orb)), m_address(address), m_name(name) {}

CosEventChannelAdmin::EventChannel_ptr EventChannel::Connect() {
    m_channel = Find();
    if (CORBA::is_nil(m_channel)) m_channel = Make();
    const CosEventChannelAdmin::SupplierAdmin_var admin = m_channel->for_suppliers();
    const CosEventChannelAdmin::ProxyPushConsumer_var consumer = admin->obtain_push_consumer();
    // Nil: we need no message when the channel goes, the next push tells.
    consumer->connect_push_supplier(CosEventComm::PushSupplier::_nil());
    m_consumer = consumer;
    return m_channel;
}

void EventChannel::Check() {
    if (m_consumer->_non_existent()) throw CORBA::OBJECT_NOT_EXIST();
}

void EventChannel::Disconnect() {
    if (!Connected()) return;
    m_consumer->disconnect_push_consumer();
    Drop();
}

CosEventChannelAdmin::EventChannel_ptr EventChannel::Find() {
    const CORBA::Object_var object = m_orb->string_to_object(("corbaloc::" + m_address + "/" + m_name).c_str());
    try {
        return CosEventChannelAdmin::EventChannel::_narrow(object);
    } catch (const CORBA::OBJECT_NOT_EXIST&) {
        return CosEventChannelAdmin::EventChannel::_nil();
    }
}

CosEventChannelAdmin::EventChannel_ptr EventChannel::Make() {
    const CORBA::Object_var object = m_orb->string_to_object(("corbaloc::" + m_address + "/omniEvents").c_str());
    const CosLifeCycle::GenericFactory_var factory = CosLifeCycle::GenericFactory::_narrow(object);
    CosLifeCycle::Key key;
    key.length(1);
    key[0].id = "EventChannel";
    key[0].kind = "object interface";
    CosLifeCycle::Criteria criteria;
    criteria.length(3);
    criteria[0].name = "InsName";  // under which it is found above
    criteria[0].value <<= m_name.c_str();
    criteria[1].name = "MaxQueueLength";
    criteria[1].value <<= kChannelQueueLength;
    criteria[2].name = "CyclePeriod_ns";
    criteria[2].value <<= kChannelCycleNanoseconds;
    const CORBA::Object_var made = factory->create_object(key, criteria);
    return CosEventChannelAdmin::EventChannel::_narrow(made);
}

}  // namespace corba_bundle

// The interfaces through which the services of this bundle find each other.
#pragma once

#include <string>

#include <omniORB4/CORBA.h>

#include <bundlemgr/bundle.h>

namespace corba_bundle {

constexpr char BUNDLE[] = "zo_corba_bundle";
constexpr char ORB_SERVICE[] = "OrbSvc";
constexpr char NAMING_SERVICE[] = "NamingSvc";
constexpr char NOTIFY_SERVICE[] = "NotifySvc";

/// Names in the naming service; "/" separates a context from what is in it.
constexpr char AGENT_NAME[] = "zo/AlarmAgent";
constexpr char CHANNEL_NAME[] = "zo/AlarmChannel";

/// The running ORB; published by OrbSvc. Valid until that service is finalised, which
/// is after the services that are listed below it in svc.cfg.
class OrbAccess : public NS_BUNDLEMGR1::ServiceInterface {
public:
    /// @return the ORB, still OrbSvc's: `_duplicate` it to keep it
    virtual CORBA::ORB_ptr Orb() = 0;

    /// @return the agent's object, still OrbSvc's
    virtual CORBA::Object_ptr Agent() = 0;
};

/// What stands in the naming service; published by NamingSvc. Thread-safe.
class NameKeeper : public NS_BUNDLEMGR1::ServiceInterface {
public:
    /// Sees to it that `name` stands for `object` until this service ends: also when
    /// the naming service is away just now, or forgets it later. While another agent has
    /// the agent's name there, that one has this name, too. Does not wait for it.
    virtual void Keep(const std::string& name, CORBA::Object_ptr object) = 0;
};

}  // namespace corba_bundle

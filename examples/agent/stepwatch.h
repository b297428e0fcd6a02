// Which bundle the manager is at.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "progress.h"

namespace NS_BUNDLEMGR1 {
class BundleObject;
}

/// Follows the manager, for the life of this object, through the initialisation or the
/// end of all bundles, which is one call, and notes each bundle that it comes to.
///
/// It looks at the states of the bundles ten times a second, on a thread of its own: a
/// look at a bundle's services waits for whoever holds that bundle. Its destructor waits
/// for the thread.
class StepWatch {
public:
    enum class What { INITIALISATION, END };

    /// Made by the thread that is about to call the manager, while all bundles are loaded.
    StepWatch(What what, Progress& progress);
    ~StepWatch();
    StepWatch(const StepWatch&) = delete;
    StepWatch& operator=(const StepWatch&) = delete;

private:
    struct Step {
        NS_BUNDLEMGR1::BundleObject* bundle;
        std::string name;
        std::vector<std::string> services;  // those of its svc.cfg, in that order
    };

    void Watch();
    void Look();
    void Begin(const std::string& name);
    bool IsDone(const Step& step) const;

    const What m_what;
    Progress& m_progress;
    std::vector<Step> m_steps;
    std::string m_entered;  // what the progress was told last; the thread's own
    std::mutex m_mutex;     // guards m_ending
    std::condition_variable m_end;
    bool m_ending = false;
    std::thread m_thread;
};

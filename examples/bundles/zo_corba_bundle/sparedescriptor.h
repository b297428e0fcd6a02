// A file descriptor for the time when no other is left.
#pragma once

#include <atomic>

namespace corba_bundle {

/// Holds a descriptor back, and gives it up when the process can open no more. With that
/// one a connection can still be accepted in order to be closed: one that cannot be
/// accepted stays where it is, and is reported again at once to who accepts.
///
/// `Check` is for one thread, `HasRunOut` for any.
class SpareDescriptor {
public:
    enum Change { AS_BEFORE, RUN_OUT, THERE_AGAIN };

    SpareDescriptor();
    ~SpareDescriptor();
    SpareDescriptor(const SpareDescriptor&) = delete;
    SpareDescriptor& operator=(const SpareDescriptor&) = delete;

    /// Sees whether there are descriptors; to be called again and again.
    Change Check();

    bool HasRunOut() const { return m_runOut; }

private:
    static int Open();

    int m_handle;
    std::atomic<bool> m_runOut{false};
};

}  // namespace corba_bundle

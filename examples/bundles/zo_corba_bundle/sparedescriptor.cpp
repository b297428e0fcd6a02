#include "sparedescriptor.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace corba_bundle {

SpareDescriptor::SpareDescriptor() : m_handle(Open()) {}

SpareDescriptor::~SpareDescriptor() {
    if (m_handle != -1) close(m_handle);
}

SpareDescriptor::Change SpareDescriptor::Check() {
    // Taken back only when there is another besides.
    if (m_handle == -1) m_handle = Open();
    const int another = Open();
    const bool runOut = another == -1 && (errno == EMFILE || errno == ENFILE);
    if (another != -1) close(another);
    if (runOut && m_handle != -1) {
        close(m_handle);
        m_handle = -1;
    }
    if (m_runOut.exchange(runOut) == runOut) return AS_BEFORE;
    return runOut ? RUN_OUT : THERE_AGAIN;
}

int SpareDescriptor::Open() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

}  // namespace corba_bundle

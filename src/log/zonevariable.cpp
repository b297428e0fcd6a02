#include "src/log/zonevariable.h"

#include <cstring>

#include <unistd.h>

namespace NS_BUNDLEMGR1 {

namespace {

constexpr char kName[] = "TZ=";
constexpr std::size_t kNameSize = sizeof kName - 1;

}  // namespace

const char* ZoneVariable::Value() {
    if (!IsWhereItWas()) Find();
    return m_found != nullptr ? m_found + kNameSize : "/etc/localtime";
}

// A new variable comes to the end, perhaps after others were taken away; a new value takes the
// place of the former.
bool ZoneVariable::IsWhereItWas() const {
    return environ != nullptr && environ == m_environment && environ[m_size] == nullptr &&
           (m_size == 0 || environ[m_size - 1] == m_last) && environ[m_at] == m_found;
}

void ZoneVariable::Find() {
    m_environment = environ;
    m_size = 0;
    m_last = nullptr;
    m_found = nullptr;
    for (; environ != nullptr && environ[m_size] != nullptr; ++m_size) {
        m_last = environ[m_size];
        if (m_found != nullptr || std::strncmp(m_last, kName, kNameSize) != 0) continue;
        m_found = m_last;
        m_at = m_size;
    }
    if (m_found == nullptr) m_at = m_size;
}

}  // namespace NS_BUNDLEMGR1

#include <bundlemgr/bundle.h>

namespace NS_BUNDLEMGR1 {

namespace {

void MoveText(std::stringstream& from, std::stringstream& to) {
    to << from.rdbuf();
    // Set when there was nothing to insert; the copy is to be written to all the same.
    to.clear();
}

}  // namespace

ProcessException::ProcessException() = default;

ProcessException::ProcessException(ProcessException& other) : std::exception(other) {
    MoveText(other.m_stream1, m_stream1);
    MoveText(other.m_stream2, m_stream2);
    MoveText(other.m_stream3, m_stream3);
    MoveText(other.m_stream4, m_stream4);
}

ProcessException::~ProcessException() = default;

InterfaceNotExistException::InterfaceNotExistException() = default;

InterfaceNotExistException::InterfaceNotExistException(InterfaceNotExistException&) = default;

InterfaceNotExistException::~InterfaceNotExistException() = default;

}  // namespace NS_BUNDLEMGR1

// The file that tells the port.
#pragma once

#include <string>
#include <utility>

namespace alarms {

/// For whoever wants to connect to a port that was picked at random.
///
/// Other users may be allowed to make files where it stands, so neither its name nor that
/// of the file it is made from is trusted: a link is not followed, and what is no regular
/// file is not touched, let alone waited for.
class PortFile {
public:
    explicit PortFile(std::string path) : m_path(std::move(path)) {}

    const std::string& Path() const { return m_path; }

    /// Puts the file in its place, whole: nobody reads half of it.
    /// @return whether it is there
    bool Write(int port);

    /// Removes what `Write` has written. A file with another port, that of another agent on
    /// the same root, stays.
    void Remove();

private:
    const std::string m_path;
    int m_port = 0;  // what we have written; 0: nothing
};

}  // namespace alarms

// A configuration file as it stands, line by line.
#pragma once

#include <string>
#include <vector>

#include <bundlemgr/export.h>

namespace alarms {

struct ConfigLine {
    unsigned long number = 0;  ///< In the file, from 1.
    std::string name;          ///< What stands in front of the "="; "" when there is none.
    std::string value;         ///< What stands behind it.
    std::string fault;         ///< Why the library takes something else for it; "" when it does not.
};

/// The lines of a key=value file, for who has to know what was meant.
///
/// The library reads a line of more than 1022 bytes in pieces, each as a line of its own,
/// and a line with a NUL byte up to there. Most settings can live with that. An address
/// cannot: 127.0.0.25 that is cut becomes 127.0.0.2, somebody else's.
class ZO_PLUGIN_EXPORT ConfigLines {
public:
    /// Reads the file. It waits for nobody: what is no regular file is not read.
    explicit ConfigLines(const std::string& file);

    /// @return why the file cannot be read; "" when it can
    const std::string& Trouble() const { return m_trouble; }

    /// @return its lines in file order, without those that are empty. A comment is there
    ///         only if it has a fault, as a line without a name
    const std::vector<ConfigLine>& Lines() const { return m_lines; }

private:
    void Take(unsigned long number, const std::string& text);

    std::string m_trouble;
    std::vector<ConfigLine> m_lines;
};

/// @return the path of corba_start.cfg, as the library finds it
ZO_PLUGIN_EXPORT std::string StartFile();

}  // namespace alarms

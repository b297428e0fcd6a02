// Follows a text file that another process writes, as `tail -F` does.
#pragma once

#include <cstddef>
#include <string>

#include <sys/types.h>

namespace alarms {

/// Reads a growing file line by line, from its beginning. It may be missing at first, be
/// replaced by a new file (a rotated log) or be cut back to nothing: the new content is
/// then read from its beginning. A line counts when its line end is there, the last line
/// of a replaced file also without.
///
/// What cannot be seen: a file that is cut back and grows beyond its former length
/// between two polls, and of several files that take each other's place between two
/// polls all but the last.
///
/// Thread safety: none, it belongs to one thread.
class FeedFollower {
public:
    /// Who gets the lines.
    class Reader {
    public:
        virtual ~Reader() = default;

        /// @param number of the line in its file, from 1
        /// @param text   without line end, at most `kMaxLine` bytes
        virtual void Line(unsigned long number, const std::string& text) = 0;

        /// A line of more than `kMaxLine` bytes.
        virtual void TooLong(unsigned long number) = 0;

        /// Something to know about the file as a whole.
        virtual void Notice(const std::string& text) = 0;

        /// @return whether to leave off in the middle of a long file
        virtual bool Stopping() = 0;
    };

    static constexpr std::size_t kMaxLine = 4096;

    FeedFollower(std::string file, Reader& reader);
    ~FeedFollower();
    FeedFollower(const FeedFollower&) = delete;
    FeedFollower& operator=(const FeedFollower&) = delete;

    /// Reads what is new.
    void Poll();

private:
    bool Open();
    void Close();
    void Restart();
    void ReadToEnd();
    void Take(const char* data, std::size_t size);
    void EndLine();
    bool IsReplaced() const;
    bool IsCutBack() const;

    const std::string m_file;
    Reader& m_reader;
    int m_handle = -1;
    off_t m_offset = 0;          // bytes read of the open file
    unsigned long m_number = 0;  // lines ended in the open file
    std::string m_line;          // the line under way
    bool m_tooLong = false;      // and its rest is being skipped
    bool m_missingReported = false;
};

}  // namespace alarms

// Whole records into one file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include <ace/Time_Value.h>

#include "src/log/recordformatter.h"

namespace NS_BUNDLEMGR1 {

/// Collects records and writes them to an open file, a record by itself in one write(2).
///
/// After a failed write the file is cut back to the last record that reached it whole; what
/// did not is given up. Counts what is kept and what is given up (see `LossCounter`).
///
/// Thread safety: none; its owner serialises the calls.
class RecordStream {
public:
    /// No file yet.
    RecordStream();

    /// Closes.
    ~RecordStream();

    RecordStream(const RecordStream&) = delete;
    RecordStream& operator=(const RecordStream&) = delete;

    /// @param handle of the file, which this closes from now on
    /// @param bytes  that are in it already
    void Open(int handle, std::uint64_t bytes);

    bool IsOpen() const { return m_nHandle != -1; }

    /// @return size of the file, with the records that are still to be written
    std::uint64_t Bytes() const { return m_nBytes; }

    /// Takes a record.
    /// @param time of the record
    /// @return false where the file refused it, or one before it; then nothing waits any more,
    ///         and the record is the caller's to count
    bool Write(const RecordFormatter& record, const ACE_Time_Value& time);

    /// Writes what waits. @return false where the file refused it; then nothing waits any more
    bool Flush();

    /// Writes what waits, and closes the file.
    void Close();

    /// In a forked child: closes the file, and writes nothing.
    void LeaveToParent();

private:
    bool PutAll(const RecordFormatter& record, const ACE_Time_Value& time);
    bool Put(std::string_view piece);
    bool WriteWaiting();
    void KeepRest();
    void GiveUpUnwritten();
    void CutBack(std::uint64_t onDisk);

    // After a failed write the file is cut back to one of these ends, or to what an earlier
    // flush made safe.
    struct Unflushed {
        std::uint64_t end;
        ACE_Time_Value time;
    };

    int m_nHandle = -1;
    std::uint64_t m_nBytes = 0;
    std::uint64_t m_nFlushed = 0;
    const std::unique_ptr<char[]> m_buffer;
    std::size_t m_nWaiting = 0;  // bytes in the buffer
    std::vector<Unflushed> m_vecUnflushed;
};

}  // namespace NS_BUNDLEMGR1

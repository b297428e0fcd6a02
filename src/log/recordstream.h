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
/// After a failed write the file is cut back to the last record that reached it whole. The
/// first that did not is lost; those behind it wait for the next file. Of a file that takes
/// none at all, each failure costs 64 KiB of them: a full disk is not asked for each record.
/// Counts what is kept and what is lost (see `LossCounter`).
///
/// Thread safety: none; its owner serialises the calls.
class RecordStream {
public:
    /// No file yet.
    RecordStream();

    /// Closes the file; what waits is gone.
    ~RecordStream();

    RecordStream(const RecordStream&) = delete;
    RecordStream& operator=(const RecordStream&) = delete;

    /// What waits goes to this file.
    /// @param handle of the file, which this closes from now on
    /// @param bytes  that are in it already
    void Open(int handle, std::uint64_t bytes);

    bool IsOpen() const { return m_nHandle != -1; }

    /// @return size of the file, with the records that are still to be written
    std::uint64_t Bytes() const { return m_nBytes; }

    enum class Taken {
        Yes,
        No,     ///< The file refused it. It is the caller's to count.
        NotYet  ///< The file refused one before it. This one is to be tried with the next file.
    };

    /// Takes a record.
    /// @param time of the record
    Taken Write(const RecordFormatter& record, const ACE_Time_Value& time);

    /// Writes what waits. @return false where the file refused it, and is better closed
    bool Flush();

    /// @return whether records wait; after a refusal, for the next file
    bool HasWaiting() const { return !m_vecUnflushed.empty(); }

    /// What waits is lost.
    void GiveUpWaiting();

    /// Closes the file. What waits stays, for the next.
    void Close();

    /// In a forked child: closes the file, and writes nothing.
    void LeaveToParent();

private:
    bool PutAll(const RecordFormatter& record, const ACE_Time_Value& time, std::size_t& size);
    bool Put(std::string_view piece);
    bool WriteWaiting();
    void KeepRest();
    void KeepLast(std::uint64_t bytes);
    void NoteKept();
    void DropPart();
    void DropRefused();
    void CutBack(std::uint64_t onDisk);

    struct Unflushed {
        std::uint64_t size;
        ACE_Time_Value time;
    };

    int m_nHandle = -1;
    std::uint64_t m_nBytes = 0;
    std::uint64_t m_nFlushed = 0;  // bytes of the file that are safe
    bool m_bTookAny = false;       // the file, since it was opened
    const std::unique_ptr<char[]> m_buffer;
    std::size_t m_nWaiting = 0;  // bytes in the buffer: the last ones of the unflushed records
    std::vector<Unflushed> m_vecUnflushed;
};

}  // namespace NS_BUNDLEMGR1

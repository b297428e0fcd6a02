/// @file recordblocks.h
/// What the log buffer keeps its waiting records in.
#pragma once

#include <cstddef>

#include <ace/Time_Value.h>

/// @cond INTERNAL
namespace NS_BUNDLEMGR1 {

struct RecordView;

/// Records in the order in which they came, packed into blocks of memory. Of records in a row
/// that have thread and source in common, each block holds these once.
///
/// Thread safety: none; its owner serialises the calls.
class RecordBlocks {
public:
    RecordBlocks() = default;
    ~RecordBlocks() { Clear(); }
    RecordBlocks(const RecordBlocks&) = delete;
    RecordBlocks& operator=(const RecordBlocks&) = delete;

    /// Copies a record to the end.
    /// @return false where there is no memory for it, and for one with half a gigabyte of text
    bool Append(const RecordView& record);

    /// Takes the oldest record away; there must be one.
    void PopFront();

    void Clear();
    void Swap(RecordBlocks& other);

    bool IsEmpty() const { return m_nRecords == 0; }
    std::size_t Size() const { return m_nRecords; }

    /// @return the time of the oldest record; there must be one
    ACE_Time_Value FirstTime() const;

private:
    friend class RecordReader;
    struct Block;

    bool AddBlock(std::size_t bytes);

    Block* m_first = nullptr;
    Block* m_last = nullptr;
    std::size_t m_nRecords = 0;
};

}  // namespace NS_BUNDLEMGR1
/// @endcond

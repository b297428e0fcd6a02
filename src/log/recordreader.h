// The records of some blocks, one after the other.
#pragma once

#include <cstddef>

#include <bundlemgr/detail/recordblocks.h>

#include "src/log/recordview.h"

namespace NS_BUNDLEMGR1 {

/// Reads records from the oldest to the latest:
///
///     for (RecordReader reader(blocks); reader; reader.Next()) Write(reader.Record());
///
/// The blocks must not change meanwhile. Thread safety: none.
class RecordReader {
public:
    explicit RecordReader(const RecordBlocks& blocks);

    /// @return whether there is a record
    explicit operator bool() const { return m_nLeft > 0; }

    /// Valid until `Next`.
    const RecordView& Record() const { return m_record; }

    void Next();

private:
    void Read();

    const RecordBlocks::Block* m_block;
    std::size_t m_nAt;        // in the block
    std::size_t m_nSize = 0;  // of the record there
    std::size_t m_nLeft;
    RecordView m_record;
};

}  // namespace NS_BUNDLEMGR1

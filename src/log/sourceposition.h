// Where the records of a proxy come from.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <bundlemgr/detail/mutex.h>

namespace NS_BUNDLEMGR1 {

class RecordSource;
struct RecordView;

/// The bundle, service, file and line that a proxy puts into its records. A record gets them as
/// they were at one moment.
///
/// The sources that a proxy has had are remembered, made up as they stand in a record, and never
/// changed: while its statements move among these, records take no lock and copy nothing.
///
/// Thread safety: all operations may be called from any thread.
class SourcePosition {
public:
    SourcePosition();
    ~SourcePosition();
    SourcePosition(const SourcePosition&) = delete;
    SourcePosition& operator=(const SourcePosition&) = delete;

    /// @name Setters
    /// A null text is the empty one, and so is one for which there is no memory.
    /// @{
    void SetBundle(const char* name);
    void SetService(const char* name);
    void Set(const char* file, unsigned long line);
    /// @}

    /// Gives a record its source and its line.
    /// @param room for the source, if it is not remembered; must live as long as the record
    /// @return false where there is no memory for them
    bool Take(RecordSource& room, RecordView& record) const;

    /// The same with a file and a line of the record's own.
    bool TakeAt(const char* file, unsigned long line, RecordSource& room, RecordView& record) const;

    /// @name Around fork
    /// No position is in the middle of a change when the child is made.
    /// @{
    static void BeforeFork();
    static void AfterFork();
    /// @}

private:
    // More than a proxy has as a rule, and of a usual size. The others take the lock.
    static constexpr std::size_t kSources = 32;
    static constexpr std::size_t kMaxSize = 512;

    struct Names {
        std::string bundle;
        std::string service;
        std::string file;
    };

    struct Source {
        const Names names;
        const std::size_t group;
        std::unique_ptr<char[]> text;
        const std::size_t size;
    };

    // Which of the sources, counted from 1, in the upper bits, and the line below. 0: none of them,
    // and all that there is to know stands under the lock.
    using Place = std::uint64_t;
    static constexpr unsigned kLineBits = 48;
    static constexpr Place kMaxLine = (Place{1} << kLineBits) - 1;

    static Place PlaceOf(std::size_t source, unsigned long line);
    static std::size_t NumberOf(Place place) { return place >> kLineBits; }
    const Source* SourceAt(Place place) const;
    bool SetKnown(const char* file, unsigned long line);
    std::size_t FindFile(std::size_t group, const char* file) const;
    void Rename(std::string Names::*name, const char* text);
    std::size_t FindGroup() const ZO_REQUIRES(m_mutex);
    std::size_t FindOrMakeSource() ZO_REQUIRES(m_mutex);
    std::size_t MakeSource() ZO_REQUIRES(m_mutex);

    std::atomic<Place> m_place{0};
    std::array<std::unique_ptr<const Source>, kSources> m_sources;  // each set before it is counted
    std::atomic<std::size_t> m_nSources{0};                         // changed under the lock
    // What the place names counts; the file and the line here are older then.
    Names m_names ZO_GUARDED_BY(m_mutex);
    unsigned long m_nLine ZO_GUARDED_BY(m_mutex) = 0;
    // Sources with one bundle and service are a group, called by the number of the first one. 0: the
    // names have none yet.
    std::size_t m_nGroup ZO_GUARDED_BY(m_mutex) = 0;
    detail::Mutex& m_mutex;
};

}  // namespace NS_BUNDLEMGR1

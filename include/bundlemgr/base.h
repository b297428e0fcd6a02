/// @file base.h
/// The ground under the container: text and path helpers, directories, key=value
/// files, the CORBA agent's settings and code-set conversion.
///
/// Strings are byte strings; no locale is consulted. Unless a comment says
/// otherwise, functions report failure by their result, throw nothing of their own
/// and may be called from any thread.
#pragma once

#include <atomic>
#include <list>
#include <string>
#include <vector>

#include <ace/Time_Value.h>

#include <bundlemgr/detail/mutex.h>
#include <bundlemgr/export.h>

namespace NS_BUNDLEMGR1 {

/// @name Text
/// White space is exactly space, TAB, LF and CR.
/// @{

/// @param text the text, any bytes
/// @return a copy without trailing white space
ZO_EXPORT std::string RTrim(const std::string& text);

/// @param text the text, any bytes
/// @return a copy without leading white space
ZO_EXPORT std::string LTrim(const std::string& text);

/// @param text the text, any bytes
/// @return a copy without leading and trailing white space
ZO_EXPORT std::string Trim(const std::string& text);

/// @param text the text, any bytes
/// @return a copy without any TAB
ZO_EXPORT std::string DelTabStr(const std::string& text);

/// Splits `text` at `separator`. Empty fields are kept, except one after a trailing
/// separator: "a,,b," gives "a", "", "b".
/// @param text      the text; null counts as empty
/// @param separator one character
/// @param out       the fields are appended to it
ZO_EXPORT void Str2StrVec(const char* text, char separator, std::vector<std::string>& out);

/// Reads an integer: decimal, octal ("017") or hexadecimal ("0x1f"), with an optional
/// leading "-", white space around it ignored.
/// @param text  the literal
/// @param value receives the number, narrowed to int; untouched on failure
/// @return whether `text` is such a literal
ZO_EXPORT bool Str2Int(const std::string& text, int& value);
/// @}

/// @name Paths and files
/// File-system failures are not reported.
/// @{

/// Removes leading and trailing blanks and turns every `\` into `/`.
/// @param path the path, changed in place
ZO_EXPORT void ConvertBackslash(std::string& path);

/// Normalises an absolute path: `ConvertBackslash`, then folds "/.." and "/./". The
/// folding is textual; symbolic links are not looked at.
/// @param path the path; on failure its content is unspecified
/// @return false for an empty path, one that begins with ".", and one whose ".." has
///         nothing in front of it to fold
ZO_EXPORT bool ConvertAbsolutePath(std::string& path);

/// @param path a path, normalised as by `ConvertAbsolutePath` first
/// @return the directory above `path`, ending in "/"; "" where there is none
ZO_EXPORT std::string GetParentPath(const std::string& path);

/// @param path a path, absolute or relative to the working directory
/// @return whether `path` exists, whatever kind of file it is
ZO_EXPORT bool IsExistDir(const std::string& path);

/// Deletes everything below a directory. Links are followed: what a symbolic link to
/// a directory leads to is emptied as well.
/// @param path       the directory; nothing happens when it cannot be opened
/// @param removeSelf whether the directory itself goes, too
ZO_EXPORT void RemoveDir(const std::string& path, bool removeSelf);

/// Makes `path` an empty directory of mode 0750, whether it existed or not and whatever
/// the process's umask. The directories above it must exist. What was in it goes as with
/// `RemoveDir`, which follows links: a directory that a symbolic link in it leads to is
/// emptied as well, wherever it is. The link then stays, and with it the directory and its
/// mode.
/// @param path the directory; one that a symbolic link leads to is made anew where it was
ZO_EXPORT void ReCreateDir(const std::string& path);

/// Deletes a file, unless it is a directory.
/// @param path the file; a symbolic link to one is deleted, not the file
ZO_EXPORT void DeleteFile(const std::string& path);

/// Deletes each of `files` in order, passing over those that cannot be deleted.
/// @param files paths
ZO_EXPORT void RemoveFilesList(const std::list<std::string>& files);
/// @}

/// @param t a point in time
/// @return its local time with the zone's name, "CST 2024-03-01 08:05:09.000042",
///         converted by `Convert2UTFforLog`
ZO_EXPORT std::string GetZoneTimeStamp(const ACE_Time_Value& t);

/// @name Directories
/// All of them stand on the platform's installation path. Where the platform library
/// is not built in, that is the environment variable `KORU_SERVER_PATH`. Each call
/// reads the environment afresh; nothing is created or checked.
/// @{

/// @param name name of an environment variable
/// @return its value less one trailing "/" or "\"; "" when it is unset
ZO_EXPORT std::string GetPathBySysEnvironment(const std::string& name);

/// @return the installation path, ending in "/" or "\"; "" when there is none
ZO_EXPORT std::string GetKORURootPath();

/// @return "<installation path>/nbi"; "" when there is no installation path
ZO_EXPORT std::string GetKORUEnvironment();

/// @return "<installation path>/nbi/../nbi"; "" when there is no installation path
ZO_EXPORT std::string GetNBIBaseDirPath();

/// @return the configuration directory, ending in "/":
///         "<installation path>/nbi/../etc/oss_cfg/nbi/<sub-directory>/"; "" when
///         there is no installation path
ZO_EXPORT std::string GetCfgDirPath();

/// Sets the sub-directory of `GetCfgDirPath`, "conf" at first. Meant for the host,
/// before it loads bundles.
/// @param name the name, without separators; "" is taken as it is
/// @return 0
ZO_EXPORT int SetCfgDirPath(const std::string& name);

/// @return `GetNBIBaseDirPath()` + "/../var/oss_tmp/nbi/corba/cdrfiles", also when
///         the base is empty
ZO_EXPORT std::string GetCDRFilesDir();

/// @return `$_APP_LOG_DIR` (empty when unset) + "/Develop/nbi/Agent_CORBA"
ZO_EXPORT std::string GetNBILogPath();
/// @}

/// @name Key=value files
/// One entry a line. Lines are trimmed; empty ones and those that begin with "#" are
/// skipped. A line of more than 1023 bytes is read as several lines. What is neither a
/// regular file nor a link to one cannot be opened and is not waited for, be it a FIFO, a
/// device or a socket; but a directory opens, and has no entries.
/// @{

/// One entry of a configuration file.
struct NameValueStru {
    std::string name;   ///< The key; empty where lines are read whole.
    std::string value;  ///< The value, or the whole line.

    bool operator==(const NameValueStru& other) const { return name == other.name && value == other.value; }
    bool operator!=(const NameValueStru& other) const { return !(*this == other); }
};

/// Reads a configuration file.
/// @param out      the entries are appended to it, in file order, duplicates kept
/// @param file     path of the file
/// @param keyValue true: lines "key=value", split at the first "=", others skipped;
///                 false: each line whole, as a value without a name
/// @return false only when the file cannot be opened
ZO_EXPORT bool GetAllCfgFrmFile(std::vector<NameValueStru>& out, const std::string& file, bool keyValue);

/// @param value receives the value of the first entry named `key`; untouched when
///              there is none
/// @param key   name of the entry, compared exactly
/// @param list  the entries, in file order
/// @return whether there is one
ZO_EXPORT bool GetValByKey(std::string& value, const std::string& key, const std::vector<NameValueStru>& list);

/// `GetValByKey` on the entries of a file.
/// @param value receives the value; untouched when there is none
/// @param key   name of the entry, compared exactly
/// @param file  path of the file
/// @return false also when the file cannot be opened
ZO_EXPORT bool GetCfgInfo(std::string& value, const std::string& key, const std::string& file);

/// Takes the value out of one line "key=value".
/// @param value receives the value, or "" when the line does not hold the key
/// @param line  the line
/// @param key   looked for anywhere in front of the "=", so "Port" finds "MyPort=5"
/// @return whether the line holds the key
ZO_EXPORT bool GetKeyAndValFrmStr(std::string& value, const std::string& line, const std::string& key);
/// @}

/// Set by the host before `BundleMgr::WaitAllBundlesThreadExit` when the CORBA side
/// is already gone; shortens that call's pause from 7 to 5 seconds.
ZO_EXPORT extern bool g_isUnloadingCorba;

/// Kept for callers in the field; does nothing.
ZO_EXPORT void InitCorbaData();

/// The CORBA agent's settings: `corba_start.cfg` and `corba_agent.cfg` in
/// `$_APP_SHARE_DIR/conf`, and `$APP_ROOT/etc/sysconf/nodelist.json`.
///
/// The host calls `Instance()`, then `init()` once, before anyone reads, and
/// `Destroy()` at shutdown. No operation throws on bad data.
///
/// Thread safety: reading is safe from any thread once `init` is done;
/// `SetStrItemInfo` only while no other thread reads.
class ZO_EXPORT CorbaConfigItems {
public:
    /// @return the one object, created empty on the first call
    static CorbaConfigItems* Instance();

    /// Deletes it; the next `Instance()` makes a new, empty one.
    static void Destroy();

    /// Reads everything: `GetAllStartItem`, `GetAllHostItem`, `SetHostOrIPaddress`,
    /// `GetLvsMode`.
    void init();

    /// Appends the entries of `corba_start.cfg` to the items.
    /// @return false (and a log record) when `_APP_SHARE_DIR` is unset
    bool GetAllStartItem();

    /// Reads host addresses and names from `corba_agent.cfg`.
    /// @return false (and a log record) when `_APP_SHARE_DIR` is unset
    bool GetAllHostItem();

    /// Appends the items `CORBAAgent_Host`, `NamingService_Host` and
    /// `NotifyService_Host`: the address where the item `CorbaAgentUseIp`,
    /// `NamingServiceUseIp` or `NotifyServiceUseIp` is "enable", else the host name.
    /// @return true
    bool SetHostOrIPaddress();

    /// Finds out from the node list whether the agent runs behind a virtual address:
    /// it does unless the list names the agent's own address.
    /// Reading a list that is nested a thousand levels deep, the most that is read,
    /// takes 400 KB of the calling thread's stack.
    void GetLvsMode();

    /// @param address "host" or "host:port"
    /// @return whether the address is this agent's (or 127.0.0.1) and the agent runs
    ///         behind a virtual address
    bool GetHfsMode(const std::string& address);

    /// @param name  name of an item
    /// @param value receives the first value of that name that is an integer
    ///              (`Str2Int`); untouched when there is none
    /// @return whether there is one
    bool GetIntItemInfo(const std::string& name, int& value);

    /// @param name  name of an item
    /// @param value receives its first value; untouched when there is none
    /// @return whether there is one
    bool GetStrItemInfo(const std::string& name, std::string& value);

    /// Overwrites the value of every item of that name; adds none.
    /// @param name  name of the items, compared exactly
    /// @param value the new value
    /// @return true
    bool SetStrItemInfo(const std::string& name, const std::string& value);

    /// @param address receives the agent's configured host address
    void GetHostIP(std::string& address);

    /// @param out replaced by a copy of all items
    /// @return true
    bool GetCorbaConfigItems(std::vector<NameValueStru>& out);

    /// @param out the addresses of the `acl` items (separated by ",") are appended,
    ///            as values without a name; an item with an empty piece adds none
    /// @return true
    bool GetIPAddressList(std::vector<NameValueStru>& out);

    /// The reader of the free function of the same name.
    /// @param out      the entries are appended to it, in file order
    /// @param file     path of the file
    /// @param keyValue whether the lines are "key=value"
    /// @return false only when the file cannot be opened
    bool GetAllCfgFrmFile(std::vector<NameValueStru>& out, const std::string& file, bool keyValue);

    CorbaConfigItems(const CorbaConfigItems&) = delete;
    CorbaConfigItems& operator=(const CorbaConfigItems&) = delete;
    ~CorbaConfigItems();

protected:
    CorbaConfigItems();

    static std::atomic<CorbaConfigItems*> m_pInstance;

private:
    friend class CorbaConfigAccess;

    std::vector<NameValueStru> m_vecCorbaItems ZO_GUARDED_BY(m_mutex);
    std::string m_strCorbaAgentHostIP;
    std::string m_strCorbaAgentHostName;
    std::string m_strNamingServiceHostIP;
    std::string m_strNamingServiceHostName;
    std::string m_strNotifyServiceHostIP;
    std::string m_strNotifyServiceHostName;
    detail::ThreadMutex m_mutex;
    std::atomic<bool> m_bLvsMode;
};

/// @name Code sets
/// Input that is invalid becomes one "?" a byte, a character that the target lacks
/// becomes one "?". Output ends at its first NUL byte.
///
/// GBK, UTF-8, the ISO-8859 family, KOI8-R, CP1250 to CP1257, UTF-16 and UTF-32 (also with
/// LE or BE) and ASCII convert byte for byte as GNU libiconv does. All other sets are GNU
/// libiconv's where the library was built with it, and elsewhere the C library's, which
/// differ here and there. GBK, UTF-8, ISO-8859-1, UTF-16 and UTF-32 always work; every
/// other set then needs the C library's converter of it where the library runs.
///
/// A forked child may convert, whatever other threads of its parent were converting. What
/// can hang there is its first use of a set that needs a converter of the C library, if a
/// thread of the parent was in the C library's own `iconv_open` or `iconv_close`.
/// @{

/// Converts between two character sets by their iconv names, in upper or lower case. A
/// name that is empty or holds anything but letters, digits and `_ . : + ( ) -` is that of
/// an unknown set.
/// @param from name of the set of `in`
/// @param to   name of the set of `out`
/// @param in   the text
/// @param out  receives the result; untouched on failure. Equal names copy; the name
///             "UNKOWN" leaves it untouched and succeeds
/// @return false for an unknown set (reported on the log and on standard output), an
///         incomplete character at the end of `in`, a result of more than
///         (length of `in` + 1) x 2 bytes, or where memory runs out
ZO_EXPORT bool CodeSetConvert(const std::string& from, const std::string& to, const std::string& in, std::string& out);

/// Local set to UTF-8. The item `CharacterSetSwitch` of `corba_start.cfg`, read once,
/// tells the local set: "1" GBK, "2" ISO-8859-1, anything else: no conversion.
/// @param out receives the result; untouched on failure. Note the order
/// @param in  the text
/// @return as `CodeSetConvert`
ZO_EXPORT bool Local2Utf(std::string& out, const std::string& in);

/// UTF-8 to the local set; the mirror image of `Local2Utf`.
/// @param out receives the result; untouched on failure. Note the order
/// @param in  the text, in UTF-8
/// @return as `CodeSetConvert`
ZO_EXPORT bool Utf2Local(std::string& out, const std::string& in);

/// Local set to UTF-8 for log records. The item `LocalCharset` of `CorbaConfigItems`,
/// asked once, tells the local set: "1" GBK, anything else ISO-8859-1.
/// @param in  the text
/// @param out receives the result, or a copy of `in` when it cannot be converted
ZO_EXPORT void Convert2UTFforLog(const std::string& in, std::string& out);
/// @}

}  // namespace NS_BUNDLEMGR1

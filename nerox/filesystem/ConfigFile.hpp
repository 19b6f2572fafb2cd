#pragma once
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "nerox/filesystem/FilePath.hpp"

namespace nerox::filesystem {

/// An INI text file whose keys are bound to variables, with an optional thread
/// that re-reads it when it changes on disk.
///
/// File syntax:
///  - A section starts at a line whose first non-blank character is '['; its
///    name is the text up to the next ']', without surrounding blanks (the rest
///    of the line when there is no ']'). Lines before the first section belong
///    to the section "".
///  - A line whose first non-blank character is ';' or '#' is a comment.
///  - "key = value": the key is the text before the first '=', the value the
///    text after it, both without surrounding blanks. Keys and section names are
///    case-sensitive. When a key occurs twice in a section the last one counts.
///  - Line ends may be "\n" or "\r\n"; files are written with "\n". A UTF-8
///    byte-order mark at the start is skipped (and written back).
///
/// Value forms (every value round-trips exactly):
///  - string: written as is, unless it has leading or trailing blanks, starts
///    with '"' or holds a control character (line break, tab, ...): then it is
///    written in double quotes with backslash escapes (\\ \" \n \r \t \xHH).
///    A value that starts and ends with '"' is read back unquoted.
///  - bool: "true" / "false"; read accepts true/false, yes/no, on/off, 1/0 in any case.
///  - int32: decimal. float: the shortest decimal text that reads back to the same value.
///  - InputBinding: "key=87 mouse=-1 pad=button:-1,axis:1,dir:-1 joy=button:-1,axis:-1,dir:1"
///    where pad is joysticks[0] and joy joysticks[1]; the record fields id and
///    name are written only when they are not 0 and empty, the name quoted as a
///    string: joy=button:3,axis:-1,dir:1,id:1,name:"Some Stick Name". Fields left
///    out when reading take the defaults of a fresh InputBinding.
/// A value that fails to parse, or a number outside its Conf's range, leaves
/// its variable unchanged and prints a warning naming the file, the line and
/// the key; a later write keeps that line as the user typed it, unless the
/// variable was changed since.
///
/// Writes replace the whole file at once (a temporary file beside it, then a
/// rename) and create its folder if needed. A missing file reads as empty.
class ConfigFile : public FilePath {
public:
    /// One input action: a keyboard key, a mouse button and two joystick records.
    struct InputBinding {
        /// One joystick record of a binding.
        struct Joystick {
            std::string name;          ///< Device identity; used by the second record only.
            int id = 0;                ///< Index among devices of this name.
            int button = -1;           ///< Button number, -1 for none.
            int16_t axis = -1;         ///< Axis number, -1 for none.
            int16_t axisDirection = 1; ///< +1 or -1: the sign of the axis that counts.

            /// Field-wise comparison.
            bool operator==(Joystick const&) const = default;
        };

        int key = -1;          ///< Keyboard key code (GLFW numbering), -1 for none.
        int mouseButton = -1;  ///< Mouse button, -1 for none.
        Joystick joysticks[2]; ///< The first gamepad, then one named joystick.

        /// Field-wise comparison.
        bool operator==(InputBinding const&) const = default;
    };

    /// Conf type: std::string.
    static constexpr int TypeString = 1;
    /// Conf type: bool.
    static constexpr int TypeBool = 3;
    /// Conf type: int32_t.
    static constexpr int TypeInt32 = 5;
    /// Conf type: float.
    static constexpr int TypeFloat = 7;
    /// Conf type: InputBinding.
    static constexpr int TypeInputBinding = 8;

    /// One binding of an INI key to a variable.
    struct Conf {
        /// Binds key to the variable at address, whose type is one of the Type constants;
        /// throws std::invalid_argument for any other type or a null address.
        Conf(ConfigFile* owner, std::string const& key, void* variable, int type);
        /// Binds key to a string variable.
        Conf(ConfigFile* owner, std::string const& key, std::string& variable);
        /// Binds key to a bool variable.
        Conf(ConfigFile* owner, std::string const& key, bool& variable);
        /// Binds key to an int32 variable.
        Conf(ConfigFile* owner, std::string const& key, int32_t& variable);
        /// Binds key to a float variable.
        Conf(ConfigFile* owner, std::string const& key, float& variable);
        /// Binds key to an input binding variable.
        Conf(ConfigFile* owner, std::string const& key, InputBinding& variable);

        /// Accepts only numbers from minimum to maximum (for int32 and float keys).
        Conf& Range(double low, double high) {
            minimum = low, maximum = high;
            return *this;
        }

        ConfigFile* owner;
        std::string key;
        void* variable;
        int type;
        double minimum = -std::numeric_limits<double>::infinity(); ///< Smallest number accepted.
        double maximum = std::numeric_limits<double>::infinity();  ///< Largest number accepted.
    };

    /// Receives one section: its header text and one stream per content line.
    using LineHandler = std::function<void(std::istringstream& header, std::vector<std::istringstream>& lines)>;

    /// The reload interval used when the constructor gets none, in milliseconds.
    static constexpr int DefaultReloadIntervalMs = 1000;

    /// A config file at path. reloadInterval is the polling interval of the
    /// auto-reload thread in milliseconds: nullopt for DefaultReloadIntervalMs,
    /// values below 1 count as 1. Reads nothing yet.
    ConfigFile(std::string const& path, std::optional<int> reloadInterval);
    ConfigFile(ConfigFile const&) = delete;
    ConfigFile& operator=(ConfigFile const&) = delete;
    /// Stops the reload thread if it still runs. A derived class must stop it in
    /// its own destructor already, since the thread calls its ReadConfig.
    ~ConfigFile() override;

    /// Reads the file into the bound variables. The base version does nothing.
    virtual void ReadConfig();
    /// Writes the bound variables into the file. The base version does nothing.
    virtual void WriteConfig();

    /// Stores the values of the keys of section that are present into their
    /// variables. With writeMissing, absent keys are added to the file (in that
    /// section, created if needed) with the variables' current values; nothing
    /// else in the file changes.
    void ReadFromINI(std::string const& section, std::vector<Conf>& entries, bool writeMissing);
    /// Calls handler once per section in file order, with a stream of the text
    /// between the brackets and one stream per non-blank, non-comment line (as
    /// written, less a trailing '\r'). Lines before the first section come first,
    /// with an empty header, when there are any. A missing file calls nothing.
    void ReadFromINI(LineHandler const& handler);
    /// Writes the variables' current values into section, keeping every other
    /// line of the file (other sections, other keys, comments) as it is.
    void WriteToINI(std::string const& section, std::vector<Conf>& entries);

    /// Starts the thread that polls the file every reload interval and calls
    /// ReadConfig() under GetMutex() when it has changed. A second call does nothing.
    void StartAutoReloadThread();
    /// Stops the reload thread and waits for it; returns at once if none runs.
    void StopAutoReloadThread();
    /// True while the reload thread runs.
    bool IsAutoReloadRunning() const;

    /// The mutex the reload thread holds while it runs ReadConfig(). Users take it
    /// to parse or read the variables without racing a reload; ReadConfig()
    /// implementations must not take it themselves.
    std::mutex& GetMutex() { return _userMutex; }
    /// The polling interval of the reload thread in milliseconds.
    int GetReloadInterval() const { return _reloadIntervalMs; }

private:
    /// What the reload thread compares to notice a change.
    struct FileStamp {
        bool exists = false;
        uint64_t device = 0;
        uint64_t inode = 0;
        int64_t size = 0;
        int64_t modifiedSeconds = 0;
        int64_t modifiedNanoseconds = 0;

        bool operator==(FileStamp const&) const = default;
    };

    FileStamp CurrentStamp() const;
    std::vector<std::string> LoadLines() const;
    void SaveLines(std::vector<std::string> const& lines);
    void ReloadLoop();

    mutable bool _byteOrderMark = false; // the file starts with one; guarded by _fileMutex
    // Values that could not be read, by section and key: what the variable held
    // then. Their lines stay as they are while the variable keeps that value.
    // Guarded by _fileMutex.
    std::map<std::pair<std::string, std::string>, std::string> _keptLines;
    int _reloadIntervalMs;
    std::mutex _userMutex;
    std::mutex _fileMutex; // one read-modify-write of the file at a time; guards _knownStamp
    FileStamp _knownStamp;
    mutable std::mutex _controlMutex; // serialises Start and Stop
    std::mutex _threadMutex;          // guards _stopRequested
    std::condition_variable _threadCondition;
    bool _stopRequested = false;
    std::thread _thread;
};

} // namespace nerox::filesystem

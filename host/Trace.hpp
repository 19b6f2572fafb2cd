#pragma once
#include <cstdio>
#include <string>
#include <vector>

namespace host {

/// Writes, after every server tick, one CSV row per traced entity with its
/// place and velocity in its environment's frame (through its parents):
///   tick,time,entity,item,x,y,z,vx,vy,vz
/// scripts/plot-trace.sh turns such a file into a PNG.
class Trace {
public:
    /// Opens path for writing (replacing it) and writes the header. With
    /// itemTypes empty every entity is traced, otherwise those of these types.
    /// Throws std::runtime_error when the file cannot be opened.
    Trace(std::string const& path, std::vector<std::string> itemTypes);
    ~Trace();
    Trace(Trace const&) = delete;
    Trace& operator=(Trace const&) = delete;

    /// Writes the rows of one tick.
    void Write(long long tick, double seconds);
    /// Rows written so far.
    long long Rows() const { return _rows; }

private:
    std::string _path;
    std::vector<std::string> _itemTypes;
    std::FILE* _file = nullptr;
    long long _rows = 0;
};

} // namespace host

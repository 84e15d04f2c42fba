// A folder as the kernel and as the disk have it, from the calls that the recorder has noted, and
// what a power cut may leave of it.
//
// A file's bytes are sure to be on the disk when the file has been synced, names when the folder
// has. What has not been synced may be there, or not, or in part.

#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace crash {

using Folder = std::map<std::string, std::string>;  // the files' bytes by their names

Folder readFolder(const std::filesystem::path &path);
void writeFolder(const std::filesystem::path &path, const Folder &folder);  // in place of all else

struct Call {
    std::string verb;  // as in the journal
    std::vector<std::string> words;
};

std::vector<Call> readJournal(const std::filesystem::path &path);

class Disk {
public:
    explicit Disk(const Folder &folder);

    // False when the call changes nothing here.
    bool apply(const Call &call);

    Folder now() const;  // what programs see, and what a kill leaves
    std::set<Folder> afterPowerCut() const;

private:
    using File = size_t;
    using Names = std::map<std::string, File>;

    struct Bytes {
        std::string now, synced;
        bool operator==(const Bytes &) const = default;
    };
    struct Renaming {  // or creating, when `from` is empty, or removing, when `to` is
        std::string from, to;
        File file;
    };

    void open(const Call &call);
    void write(const Call &call);
    void sync(const std::string &handle);
    void change(const Renaming &renaming);
    std::set<Names> namesAfterPowerCut() const;
    std::set<std::string> bytesAfterPowerCut(File file) const;

    std::vector<Bytes> files;
    Names names, syncedNames;
    std::vector<Renaming> unsynced;  // in order
    std::map<std::string, File> handles;
};

}  // namespace crash

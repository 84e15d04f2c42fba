#include "disk.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace crash {

static constexpr size_t THE_FOLDER = SIZE_MAX;  // the "file" of a handle of the folder itself

// Where a file may be torn: between its length field and its text, and between pages.
static constexpr size_t TEARS[] = {4, 4096, 8192};

Folder readFolder(const std::filesystem::path &path)
{
    Folder folder;
    for (const auto &entry : std::filesystem::directory_iterator(path)) {
        std::ostringstream bytes;
        bytes << std::ifstream(entry.path(), std::ios::binary).rdbuf();
        folder[entry.path().filename()] = bytes.str();
    }
    return folder;
}

void writeFolder(const std::filesystem::path &path, const Folder &folder)
{
    for (const auto &entry : std::filesystem::directory_iterator(path))
        std::filesystem::remove_all(entry.path());
    for (const auto &[name, bytes] : folder)
        std::ofstream(path / name, std::ios::binary) << bytes;
}

std::vector<Call> readJournal(const std::filesystem::path &path)
{
    std::vector<Call> calls;
    std::ifstream stream(path);
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        Call call;
        words >> call.verb;
        for (std::string word; words >> word;)
            call.words.push_back(word);
        calls.push_back(call);
    }
    return calls;
}

static std::string bytesOf(const std::string &digits)
{
    const auto value = [](char digit) { return digit <= '9' ? digit - '0' : digit - 'a' + 10; };
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(value(digits[i]) * 16 + value(digits[i + 1]));
    return bytes;
}

Disk::Disk(const Folder &folder)
{
    for (const auto &[name, bytes] : folder) {
        names[name] = files.size();
        files.push_back({bytes, bytes});
    }
    syncedNames = names;
}

static void changeNames(std::map<std::string, size_t> &names, const std::string &from,
                        const std::string &to, size_t file)
{
    const auto old = names.find(from);
    if (old != names.end() && old->second == file)
        names.erase(old);
    if (!to.empty())
        names[to] = file;
}

void Disk::change(const Renaming &renaming)
{
    changeNames(names, renaming.from, renaming.to, renaming.file);
    unsynced.push_back(renaming);
}

void Disk::open(const Call &call)
{
    const std::string &name = call.words.at(3);
    if (name == ".") {
        handles[call.words[0]] = THE_FOLDER;
        return;
    }
    if (!names.contains(name)) {
        change({"", name, files.size()});
        files.emplace_back();
    }
    const size_t file = names[name];
    handles[call.words[0]] = file;
    if (call.words[2] == "t")
        files[file].now.clear();
}

void Disk::write(const Call &call)
{
    const std::string bytes = bytesOf(call.words.at(2));
    const size_t offset = std::stoul(call.words[1]);
    std::string &now = files[handles.at(call.words[0])].now;
    now.resize(std::max(now.size(), offset + bytes.size()));
    now.replace(offset, bytes.size(), bytes);
}

void Disk::sync(const std::string &handle)
{
    const size_t file = handles.at(handle);
    if (file == THE_FOLDER) {
        syncedNames = names;
        unsynced.clear();
    } else {
        files[file].synced = files[file].now;
    }
}

bool Disk::apply(const Call &call)
{
    const auto &[verb, words] = call;
    if (verb == "open")
        open(call);
    else if (verb == "write")
        write(call);
    else if (verb == "truncate")
        files[handles.at(words[0])].now.resize(std::stoul(words[1]));
    else if (verb == "sync")
        sync(words[0]);
    else if (verb == "rename")
        change({words[0], words[1], names.at(words[0])});
    else if (verb == "unlink")
        change({words[0], "", names.at(words[0])});
    else
        return false;
    return verb != "open" || words[1] == "c" || words[2] == "t";
}

Folder Disk::now() const
{
    Folder folder;
    for (const auto &[name, file] : names)
        folder[name] = files[file].now;
    return folder;
}

// Each unsynced change of a name has reached the disk or not, whatever the others did: file systems
// with a journal keep the order, others do not. Where there are too many for that, in order.
std::set<Disk::Names> Disk::namesAfterPowerCut() const
{
    static constexpr size_t MANY = 6;
    std::set<Names> result;
    for (size_t chosen = 0; chosen < size_t{1} << unsynced.size(); ++chosen) {
        const bool inOrder = (chosen & (chosen + 1)) == 0;
        if (unsynced.size() > MANY && !inOrder)
            continue;
        Names left = syncedNames;
        for (size_t i = 0; i < unsynced.size(); ++i) {
            if (chosen & (size_t{1} << i))
                changeNames(left, unsynced[i].from, unsynced[i].to, unsynced[i].file);
        }
        result.insert(left);
    }
    return result;
}

std::set<std::string> Disk::bytesAfterPowerCut(size_t file) const
{
    const auto &[now, synced] = files[file];
    if (now == synced)
        return {now};
    std::set<std::string> result{
        synced,                        // nothing has reached the disk
        now,                           // all has
        "",                            // the truncation has
        std::string(now.size(), '\0')  // the new size has, the bytes have not
    };
    for (const size_t tear : TEARS) {
        if (tear >= now.size())
            break;
        const std::string head = now.substr(0, tear);
        const std::string tail = now.substr(tear);
        result.insert(head);
        result.insert(head + std::string(tail.size(), '\0'));
        result.insert(std::string(tear, '\0') + tail);
        if (tear < synced.size()) {  // pages of the old and of the new bytes
            result.insert(head + synced.substr(tear));
            result.insert(synced.substr(0, tear) + tail);
        }
    }
    return result;
}

std::set<Folder> Disk::afterPowerCut() const
{
    std::set<Folder> result;
    for (const Names &left : namesAfterPowerCut()) {
        std::set<Folder> folders;
        folders.insert(Folder());
        for (const auto &[name, file] : left) {
            std::set<Folder> longer;
            for (const std::string &bytes : bytesAfterPowerCut(file)) {
                for (Folder folder : folders) {
                    folder[name] = bytes;
                    longer.insert(folder);
                }
            }
            folders = longer;
        }
        result.merge(folders);
    }
    return result;
}

}  // namespace crash

#include "sim/fileTree.h"

#include <cerrno>
#include <utility>

#include "sim/textTools.h"

namespace sim {
namespace {

Node Directory(std::vector<std::string> entries) {
    return {Node::Kind::Directory, std::move(entries)};
}

bool IsResultFolder(const std::string& name) {
    return name == "KUVO" || name == "KUVO64";
}

}  // namespace

Node FileTree::Find(std::string_view path) const {
    if (path == "/") {
        return Directory({"Devices", "Manage_OSTREL"});
    }
    auto parts = Split(path, '/');
    parts.erase(parts.begin());
    if (parts.front() == "Manage_OSTREL") {
        return FindManaged(parts);
    }
    if (parts.front() == "Devices" && parts.size() <= 2) {
        return parts.size() == 1 ? Directory(PoolNames(true)) : FindDevice(parts[1]);
    }
    return {};
}

Node FileTree::FindManaged(const std::vector<std::string>& parts) const {
    if (parts.size() == 1) {
        return Directory({"Pool", "manage.cmd"});
    }
    if (parts.size() == 2 && parts[1] == "manage.cmd") {
        return {Node::Kind::Manage};
    }
    if (parts[1] != "Pool") {
        return {};
    }
    if (parts.size() == 2) {
        return Directory(PoolNames(false));
    }
    if (parts.size() > 5 || !service_.Find(ObjectKind::Pool, parts[2])) {
        return {};
    }
    if (parts.size() == 3) {
        return Directory({"KUVO", "KUVO64"});
    }
    return FindResult(parts[2], parts[3], parts.size() == 5 ? parts[4] : "");
}

// The folder itself when no name is given.
// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): in the order of the path
Node FileTree::FindResult(const std::string& pool, const std::string& folder,
                          const std::string& name) const {
    if (!IsResultFolder(folder)) {
        return {};
    }
    std::vector<std::string> names;
    for (const Job& job : jobs_.All()) {
        if (job.pool == pool && ResultFileName(job) == name) {
            return {Node::Kind::Result, {}, ResultFileText(job, folder == "KUVO64")};
        }
        if (job.pool == pool) {
            names.push_back(ResultFileName(job));
        }
    }
    return name.empty() ? Directory(std::move(names)) : Node{};
}

Node FileTree::FindDevice(const std::string& pool) const {
    const auto object = service_.Find(ObjectKind::Pool, pool);
    if (!object || !object->image) {
        return {};
    }
    return {Node::Kind::Device, {}, {}, object->image};
}

std::vector<std::string> FileTree::PoolNames(bool served) const {
    std::vector<std::string> names;
    for (const StoredObject& pool : service_.All(ObjectKind::Pool)) {
        if (!served || pool.image) {
            names.push_back(pool.name);
        }
    }
    return names;
}

std::int64_t FileTree::Open(const Node& node, int process) {
    std::shared_ptr<OpenFile> file = node.image;
    if (node.kind == Node::Kind::Manage) {
        file = conversations_.Open(process);
    } else if (node.kind == Node::Kind::Result) {
        file = std::make_shared<TextFile>(node.text);
    }
    if (!file) {
        return node.kind == Node::Kind::Manage ? -EIO : -ENOENT;
    }
    const std::scoped_lock lock(mutex_);
    open_.emplace(nextHandle_, std::move(file));
    return static_cast<std::int64_t>(nextHandle_++);
}

std::shared_ptr<OpenFile> FileTree::At(std::uint64_t handle) const {
    const std::scoped_lock lock(mutex_);
    return open_.at(handle);
}

void FileTree::Close(std::uint64_t handle) {
    const std::scoped_lock lock(mutex_);
    open_.erase(handle);
}

}  // namespace sim

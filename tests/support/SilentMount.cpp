#include "tests/support/SilentMount.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fuse.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace glintmark::test {

namespace {

constexpr std::size_t requestBytes = std::size_t{256} * 1024;
constexpr std::uint32_t inodeOfFirstFile = FUSE_ROOT_ID + 1;

template <typename Struct>
std::string bytesOf(const Struct& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

template <typename Struct>
Struct structIn(std::string_view bytes) {
    Struct value{};
    std::memcpy(&value, bytes.data(), std::min(sizeof value, bytes.size()));
    return value;
}

}  // namespace

struct SilentMount::Request {
    fuse_in_header header;
    std::string body;
};

std::unique_ptr<SilentMount> SilentMount::make(const std::string& directory) {
    FileDescriptor device(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
    const auto options = "fd=" + std::to_string(device.get()) +
                         ",rootmode=40000,user_id=" + std::to_string(::getuid()) +
                         ",group_id=" + std::to_string(::getgid());
    if (!device || ::mount("silent", directory.c_str(), "fuse", 0, options.c_str()) != 0) {
        return nullptr;
    }
    return std::unique_ptr<SilentMount>(new SilentMount(directory, std::move(device)));
}

SilentMount::SilentMount(std::string directory, FileDescriptor device)
    : directory_(std::move(directory)),
      device_(std::move(device)),
      ending_(::eventfd(0, EFD_CLOEXEC)),
      thread_([this] { serve(); }) {}

SilentMount::~SilentMount() {
    ::eventfd_write(ending_.get(), 1);
    thread_.join();
    ::umount2(directory_.c_str(), MNT_FORCE | MNT_DETACH);  // closing the device aborts the calls
}

void SilentMount::addFile(const std::string& name, const std::string& bytes) {
    const std::lock_guard lock(mutex_);
    files_.emplace_back(name, bytes);
}

void SilentMount::stopAnswering(Call call) {
    const std::lock_guard lock(mutex_);
    silent_.insert(call);
}

void SilentMount::answer() {
    const std::lock_guard lock(mutex_);
    silent_.clear();
    for (const auto& request : held_) {
        handle(request);
    }
    held_.clear();
}

std::size_t SilentMount::hanging() const {
    const std::lock_guard lock(mutex_);
    return held_.size();
}

void SilentMount::serve() {
    std::string buffer(requestBytes, '\0');
    for (;;) {
        std::array<pollfd, 2> polled{{{device_.get(), POLLIN, 0}, {ending_.get(), POLLIN, 0}}};
        ::poll(polled.data(), polled.size(), -1);
        if (polled[1].revents != 0) {
            return;
        }
        const auto bytes = ::read(device_.get(), buffer.data(), buffer.size());
        if (bytes < static_cast<ssize_t>(sizeof(fuse_in_header))) {
            continue;
        }
        const std::string_view message(buffer.data(), static_cast<std::size_t>(bytes));
        const Request request{structIn<fuse_in_header>(message),
                              std::string(message.substr(sizeof(fuse_in_header)))};
        const std::lock_guard lock(mutex_);
        if (silent_.contains(static_cast<Call>(request.header.opcode))) {
            held_.push_back(request);
        } else {
            handle(request);
        }
    }
}

void SilentMount::handle(const Request& request) {
    const auto node = request.header.nodeid;
    switch (request.header.opcode) {
        case FUSE_INIT: {
            fuse_init_out out{};
            out.major = FUSE_KERNEL_VERSION;
            out.minor = 31;
            out.max_write = 4096;
            return reply(request, 0, bytesOf(out));
        }
        case FUSE_GETATTR: {
            // The zero times: the kernel may keep nothing, so each call asks again.
            return reply(
                request, 0,
                std::string(sizeof(fuse_attr_out) - sizeof(fuse_attr), '\0') + attributes(node));
        }
        case FUSE_LOOKUP: {
            const std::string name(request.body.c_str());
            for (std::size_t i = 0; i < files_.size(); ++i) {
                if (files_[i].first == name) {
                    fuse_entry_out out{};
                    out.nodeid = inodeOfFirstFile + i;
                    auto bytes = bytesOf(out);
                    const auto attr = attributes(out.nodeid);
                    bytes.replace(bytes.size() - attr.size(), attr.size(), attr);
                    return reply(request, 0, bytes);
                }
            }
            return reply(request, -ENOENT);
        }
        case FUSE_OPEN:
        case FUSE_OPENDIR:
            return reply(request, 0, bytesOf(fuse_open_out{}));
        case FUSE_READDIR:
            return reply(request, 0, entries(structIn<fuse_read_in>(request.body).offset));
        case FUSE_READ: {
            const auto in = structIn<fuse_read_in>(request.body);
            const auto& bytes = files_.at(node - inodeOfFirstFile).second;
            return reply(request, 0,
                         std::string_view(bytes).substr(
                             std::min<std::size_t>(in.offset, bytes.size()), in.size));
        }
        case FUSE_RELEASE:
        case FUSE_RELEASEDIR:
        case FUSE_FLUSH:
            return reply(request, 0);
        case FUSE_FORGET:
        case FUSE_BATCH_FORGET:
        case FUSE_INTERRUPT:
            return;  // they have no answer
        default:
            return reply(request, -ENOSYS);
    }
}

void SilentMount::reply(const Request& request, int error, std::string_view payload) const {
    const fuse_out_header header{
        static_cast<std::uint32_t>(sizeof(fuse_out_header) + payload.size()), error,
        request.header.unique};
    const auto message = bytesOf(header) + std::string(payload);
    [[maybe_unused]] const auto written = ::write(device_.get(), message.data(), message.size());
}

std::string SilentMount::attributes(std::uint64_t node) const {
    fuse_attr attr{};
    attr.ino = node;
    attr.mode = node == FUSE_ROOT_ID ? S_IFDIR | 0755 : S_IFREG | 0644;
    attr.nlink = 1;
    attr.size = node == FUSE_ROOT_ID ? 0 : files_.at(node - inodeOfFirstFile).second.size();
    attr.uid = ::getuid();
    attr.gid = ::getgid();
    return bytesOf(attr);
}

/// The directory's entries from number `offset` on.
std::string SilentMount::entries(std::uint64_t offset) const {
    std::string bytes;
    for (auto i = offset; i < files_.size(); ++i) {
        const auto& name = files_[i].first;
        fuse_dirent entry{};
        entry.ino = inodeOfFirstFile + i;
        entry.off = i + 1;
        entry.namelen = static_cast<std::uint32_t>(name.size());
        entry.type = DT_REG;
        auto record = bytesOf(entry).substr(0, FUSE_NAME_OFFSET) + name;
        record.resize(FUSE_DIRENT_ALIGN(record.size()), '\0');
        bytes += record;
    }
    return bytes;
}

}  // namespace glintmark::test

#include "decoder/Sandbox.h"

#include <linux/futex.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <memory>

#include "base/system/FileDescriptor.h"
#include "decoder/DecoderProtocol.h"

namespace glintmark::decoder {

namespace {

#ifdef GLINTMARK_SANITIZED
constexpr bool sanitizedBuild = true;
#else
constexpr bool sanitizedBuild = false;
#endif

bool limit(__rlimit_resource resource, rlim_t soft, rlim_t hard) {
    const rlimit both{soft, hard};
    return setrlimit(resource, &both) == 0;
}

/// Leaves a lower limit alone: the helper may have set one already.
bool limitTime(unsigned soft, unsigned hard) {
    const auto isLower = [&] {
        rlimit current{};
        return getrlimit(RLIMIT_CPU, &current) == 0 && current.rlim_max <= hard;
    };
    return isLower() || limit(RLIMIT_CPU, soft, hard) || isLower();
}

bool forbid(__rlimit_resource resource) { return limit(resource, 0, 0); }

bool applyLimits(const SandboxLimits& limits) {
    // The sanitizers reserve terabytes of addresses.
    if (!sanitizedBuild && !limit(RLIMIT_AS, limits.addressSpace, limits.maximumAddressSpace)) {
        return false;
    }
    return limitTime(limits.cpuSeconds, limits.maximumCPUSeconds) && forbid(RLIMIT_FSIZE) &&
           forbid(RLIMIT_CORE) && forbid(RLIMIT_NPROC) && forbid(RLIMIT_NOFILE);
}

// landlock(7): the kernel refuses rights that its version does not know.
std::uint64_t fileRights(long version) {
    std::uint64_t rights = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1U) - 1;  // all of version 1
    if (version >= 2) {
        rights |= 1U << 13U;  // REFER
    }
    if (version >= 3) {
        rights |= 1U << 14U;  // TRUNCATE
    }
    if (version >= 5) {
        rights |= 1U << 15U;  // IOCTL_DEV
    }
    return rights;
}

// A rule set without any rule: no file can be opened, created or changed by its name.
void denyFiles() {
    const long version =
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) {
        return;
    }
    landlock_ruleset_attr attributes{};
    attributes.handled_access_fs = fileRights(version);
    const FileDescriptor rules(static_cast<int>(
        syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes.handled_access_fs, 0)));
    if (rules) {
        syscall(SYS_landlock_restrict_self, rules.get(), 0);
    }
}

bool allow(void* filter, int call) {
    return seccomp_rule_add(filter, SCMP_ACT_ALLOW, call, 0) == 0;
}

bool allowOnlyIf(void* filter, int call, const scmp_arg_cmp& condition) {
    return seccomp_rule_add_array(filter, SCMP_ACT_ALLOW, call, 1, &condition) == 0;
}

bool allowOn(void* filter, int call, int descriptor) {
    return allowOnlyIf(filter, call, {0, SCMP_CMP_EQ, static_cast<scmp_datum_t>(descriptor), 0});
}

// Allows calls for memory that is not executable.
bool allowUnlessExecutable(void* filter, int call) {
    return allowOnlyIf(filter, call, {2, SCMP_CMP_MASKED_EQ, PROT_EXEC, 0});
}

bool allowMemory(void* filter) {
    // free(3) of threads' memory. Both kinds of advice only give pages back.
    constexpr unsigned advice = 2;
    return allow(filter, SCMP_SYS(brk)) && allow(filter, SCMP_SYS(munmap)) &&
           allowUnlessExecutable(filter, SCMP_SYS(mmap)) &&
           allowOnlyIf(filter, SCMP_SYS(madvise), {advice, SCMP_CMP_EQ, MADV_DONTNEED, 0}) &&
           allowOnlyIf(filter, SCMP_SYS(madvise), {advice, SCMP_CMP_EQ, MADV_FREE, 0}) &&
           // realloc(3) then copies.
           seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOMEM), SCMP_SYS(mremap), 0) == 0;
}

bool allowDecoding(void* filter, int channel) {
    // pthread_once(3) always wakes those that wait, and nobody does.
    constexpr scmp_datum_t wake = FUTEX_WAKE | FUTEX_PRIVATE_FLAG;
    return allowMemory(filter) && allow(filter, SCMP_SYS(exit_group)) &&
           allowOnlyIf(filter, SCMP_SYS(futex), {1, SCMP_CMP_EQ, wake, 0}) &&
           allowOn(filter, SCMP_SYS(read), channel) && allowOn(filter, SCMP_SYS(write), channel) &&
           // Libraries write warnings there. The descriptor is closed, so these calls just fail.
           allowOn(filter, SCMP_SYS(write), STDERR_FILENO);
}

// The sanitizers call these at any time: to look at stacks and maps, to write a report, to wait for
// their own threads.
bool allowSanitizer(void* filter) {
    static constexpr int calls[] = {
        SCMP_SYS(sigaltstack),   SCMP_SYS(rt_sigaction), SCMP_SYS(rt_sigprocmask),
        SCMP_SYS(rt_sigreturn),  SCMP_SYS(sched_yield),  SCMP_SYS(gettid),
        SCMP_SYS(getpid),        SCMP_SYS(readlink),     SCMP_SYS(getrlimit),
        SCMP_SYS(tgkill),        SCMP_SYS(nanosleep),    SCMP_SYS(clock_nanosleep),
        SCMP_SYS(clock_gettime), SCMP_SYS(gettimeofday), SCMP_SYS(madvise),
        SCMP_SYS(futex),
    };
    for (const int call : calls) {
        if (!allow(filter, call)) {
            return false;
        }
    }
    const scmp_arg_cmp noNewLimit = {2, SCMP_CMP_EQ, 0, 0};
    return allowOnlyIf(filter, SCMP_SYS(prlimit64), noNewLimit) &&
           allowUnlessExecutable(filter, SCMP_SYS(mprotect));
}

// ---- the report of a refused call

int reportChannel = -1;  // a signal handler has no other way to know it

/// Reports the call, and makes another forbidden one: SIGSYS is blocked here, so the kernel kills
/// the process. Calls only what signal-safety(7) allows.
void reportRefusedCall(int /*signal*/, siginfo_t* information, void* /*context*/) {
    const DecodeAnswer report{.status = DecodeAnswer::Status::refusedCall,
                              .call = information->si_syscall};
    [[maybe_unused]] const auto written = write(reportChannel, &report, sizeof report);
    for (;;) {
        syscall(SYS_setpriority, 0, 0, 0);
    }
}

bool installReport(int channel) {
    reportChannel = channel;
    struct sigaction action {};
    action.sa_sigaction = reportRefusedCall;
    action.sa_flags = SA_SIGINFO;
    return sigaction(SIGSYS, &action, nullptr) == 0;
}

/// The filter in the kernel's form, which the library can write only to a file. Empty on failure.
std::vector<sock_filter> compiled(void* filter) {
    const FileDescriptor file(memfd_create("filter", MFD_CLOEXEC));
    if (!file || seccomp_export_bpf(filter, file.get()) != 0) {
        return {};
    }
    const off_t bytes = lseek(file.get(), 0, SEEK_END);
    if (bytes <= 0) {
        return {};
    }
    std::vector<sock_filter> program(static_cast<std::size_t>(bytes) / sizeof(sock_filter));
    if (pread(file.get(), program.data(), static_cast<std::size_t>(bytes), 0) != bytes) {
        return {};
    }
    return program;
}

}  // namespace

std::optional<Sandbox> Sandbox::prepare(int channel) {
    const std::unique_ptr<void, decltype(&seccomp_release)> filter(seccomp_init(SCMP_ACT_TRAP),
                                                                   &seccomp_release);
    if (!filter || !allowDecoding(filter.get(), channel)) {
        return std::nullopt;
    }
    if (sanitizedBuild && !allowSanitizer(filter.get())) {
        return std::nullopt;
    }
    auto program = compiled(filter.get());
    if (program.empty()) {
        return std::nullopt;
    }
    return Sandbox(std::move(program), channel);
}

bool Sandbox::enter(const SandboxLimits& limits) const {
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        return false;
    }
    denyFiles();
    const sock_fprog program{static_cast<unsigned short>(filter_.size()),
                             const_cast<sock_filter*>(filter_.data())};
    return installReport(channel_) && applyLimits(limits) &&
           syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0;
}

}  // namespace glintmark::decoder

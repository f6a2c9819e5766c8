#include "tests/support/Restrictions.h"

#include "tests/support/Command.h"
#include "tests/support/Files.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#ifdef __linux__
#include <linux/capability.h>
#include <sys/syscall.h>
#endif

namespace {

#ifdef __linux__

constexpr unsigned permissionOverride = 1u << CAP_DAC_OVERRIDE | 1u << CAP_DAC_READ_SEARCH;

/// The capabilities of the calling thread. (The C library has no functions for them.)
class Capabilities
{
public:
    Capabilities() { m_valid = ::syscall(SYS_capget, &m_header, m_data) == 0; }

    bool isValid() const { return m_valid; }
    bool overridePermissions() const { return (m_data[0].effective & permissionOverride) != 0; }

    bool setOverride(bool on)
    {
        if (on)
            m_data[0].effective |= m_data[0].permitted & permissionOverride;
        else
            m_data[0].effective &= ~permissionOverride;
        return ::syscall(SYS_capset, &m_header, m_data) == 0;
    }

private:
    __user_cap_header_struct m_header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct m_data[_LINUX_CAPABILITY_U32S_3]{};
    bool m_valid = false;
};

#endif

/// True when @p command starts the updater, and what it starts cannot read a locked file.
bool enforcesPermissions(const QStringList& command)
{
    const TestDir dir;
    files::write(dir / "locked", "locked");
    files::setMode(dir / "locked", 0);
    const auto succeeds = [&](const QStringList& test) {
        return runCommand(command + test).status == 0;
    };
    return succeeds({"test", "-x", UPDATER_EXECUTABLE}) &&
           !succeeds({"test", "-r", dir / "locked"});
}

} // namespace

EnforcedPermissions::EnforcedPermissions()
{
#ifdef __linux__
    Capabilities capabilities;
    if (!capabilities.isValid())
        return;
    m_dropped = capabilities.overridePermissions() && capabilities.setOverride(false);
    m_active = m_dropped || !capabilities.overridePermissions();
#else
    m_active = ::geteuid() != 0;
#endif
}

EnforcedPermissions::~EnforcedPermissions()
{
#ifdef __linux__
    if (m_dropped && !Capabilities().setOverride(true))
        qFatal("test fixture: cannot take the override of permissions back");
#endif
}

QStringList commandWithout(const QStringList& capabilities)
{
    return {"setpriv", "--inh-caps=-all", "--bounding-set=-" + capabilities.join(",-")};
}

std::optional<QStringList> commandUnderPermissions()
{
    const QStringList ordinaryUser;
    const QStringList root = commandWithout({"dac_override", "dac_read_search"});
    for (const QStringList& command : {ordinaryUser, root}) {
        if (enforcesPermissions(command))
            return command;
    }
    return std::nullopt;
}

ScopedMode::ScopedMode(const QString& path, unsigned mode)
    : m_path(path), m_previous(files::mode(path))
{
    files::setMode(path, mode);
}

ScopedMode::~ScopedMode()
{
    files::setMode(m_path, m_previous);
}

NoDescriptorsLeft::NoDescriptorsLeft()
{
    rlimit limit;
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        qFatal("test fixture: cannot read the limit of file descriptors");
    m_previous = limit.rlim_cur;
    // Not less than what is in use: waiting for more descriptors than the limit is an error.
    const int firstFree = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(firstFree);
    limit.rlim_cur = static_cast<rlim_t>(firstFree);
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
        qFatal("test fixture: cannot set the limit of file descriptors");
}

NoDescriptorsLeft::~NoDescriptorsLeft()
{
    rlimit limit;
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = static_cast<rlim_t>(m_previous);
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
        qFatal("test fixture: cannot restore the limit of file descriptors");
}

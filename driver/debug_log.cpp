// customMessageHandler: one time-stamped line per message, appended to the debug log file.
//
// The file is opened and closed for every message so that nothing is lost if the panel loses
// power, and so that no lock or open handle lives between calls. The log sits in a folder every
// user may write, and panel runtimes often run as root: the path is opened without following a
// link and without blocking, and written only when it is a regular file of this user with no
// other name, so that nobody can point it at another file or hang the host on a FIFO. A file
// that cannot be used is silently skipped: logging must never disturb the host.
#include "driver/debug_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QtCore/QFile>
#include <QtCore/QTextStream>

#include "base/qt_compat.h"
#include "korvan_qa_qb_series_port.h"

namespace {

// Read and written by this user alone.
constexpr mode_t kNewLogMode = S_IRUSR | S_IWUSR;

// Closes the descriptor it was given when it goes.
class OpenedFile {
public:
    explicit OpenedFile(int fd) : fd_(fd) {}
    ~OpenedFile() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    OpenedFile(const OpenedFile&) = delete;
    OpenedFile& operator=(const OpenedFile&) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

// A regular file of the effective user, reachable by this one name only. Writing never raises
// SIGPIPE then: only pipes and sockets do.
bool safeToAppend(int fd) {
    struct stat st;
    return fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid() && st.st_nlink == 1;
}

}  // namespace

QString debugLogTimeStamp(const QDateTime& when) {
    return qtcompat::formatWithMilliseconds(when, "yyyy.MM.dd.hh:mm:ss.");
}

void appendDebugLogLine(const char* path, const char* msg) {
    const QString text = QString::fromLatin1(msg != nullptr ? msg : "");
    const OpenedFile opened(
        open(path, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY,
             kNewLogMode));
    if (opened.fd() < 0 || !safeToAppend(opened.fd())) {
        return;
    }
    QFile file;
    if (!file.open(opened.fd(), QIODevice::WriteOnly | QIODevice::Append, QFile::DontCloseHandle)) {
        return;
    }
    QTextStream out(&file);
    out << debugLogTimeStamp(QDateTime::currentDateTime()) << ':' << text << '\n';
    out.flush();
    file.close();
}

void customMessageHandler(QtMsgType, const char* msg) {
    appendDebugLogLine(kDebugLogPath, msg);
}

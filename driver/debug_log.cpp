// customMessageHandler: one time-stamped line per message, appended to the debug log file.
//
// The file is opened and closed for every message so that nothing is lost if the panel loses
// power, and so that no lock or open handle lives between calls. A file that cannot be opened
// is silently skipped: logging must never disturb the host.
#include "driver/debug_log.h"

#include <QtCore/QFile>
#include <QtCore/QTextStream>

#include "base/qt_compat.h"
#include "korvan_qa_qb_series_port.h"

QString debugLogTimeStamp(const QDateTime& when) {
    return qtcompat::formatWithMilliseconds(when, "yyyy.MM.dd.hh:mm:ss.");
}

void customMessageHandler(QtMsgType, const char* msg) {
    const QString text = QString::fromLatin1(msg != nullptr ? msg : "");
    QFile file(QString::fromLatin1(kDebugLogPath));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append)) {
        return;
    }
    QTextStream out(&file);
    out << debugLogTimeStamp(QDateTime::currentDateTime()) << ':' << text << '\n';
    out.flush();
    file.close();
}

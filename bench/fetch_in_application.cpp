// Fetches files one after the other in a program with windows: what the toolkit alone takes of a
// check and, with a progress dialog that is kept up to date, of an update.
//
//   fetch_in_application BASE_URL LIST [FILES]     LIST has one path a line, FILES lines in all;
//                                                  exit status 0 when all came

#include "bench/FetchOneByOne.h"

#include <QApplication>
#include <QProgressDialog>

#include <memory>

int main(int argc, char** argv)
{
    const QApplication app(argc, argv);
    if (argc != 3 && argc != 4)
        return 2;
    std::unique_ptr<QProgressDialog> dialog;
    if (argc == 4) {
        dialog = std::make_unique<QProgressDialog>(QStringLiteral("Downloading file 1"),
                                                   QStringLiteral("Cancel"), 0,
                                                   QByteArray(argv[3]).toInt());
        dialog->show();
    }
    return fetchOneByOne(
        QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2]), [&](int count) {
            if (!dialog)
                return;
            dialog->setValue(count);
            dialog->setLabelText(QStringLiteral("Downloading file %1 of %2 (%3 MB left)")
                                     .arg(count + 1)
                                     .arg(dialog->maximum())
                                     .arg(0.0078125 * (dialog->maximum() - count), 0, 'f', 2));
        });
}

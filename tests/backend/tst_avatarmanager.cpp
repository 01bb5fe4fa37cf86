#include <QtTest>

#include <QBuffer>
#include <QTemporaryDir>

#include "avatarmanager.h"
#include "httpfixture.h"

namespace {
QByteArray png(const QColor& colour) {
    QImage image(4, 4, QImage::Format_ARGB32);
    image.fill(colour);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}
}  // namespace

class TestAvatarManager : public QObject {
    Q_OBJECT
private slots:
    void grayWeights();
    void downloadsOnceKeepsFilesAndRefusesGarbage();
    void fewDownloadsAtATime();
};

void TestAvatarManager::grayWeights() {
    QImage source(6, 1, QImage::Format_ARGB32);
    const QRgb colours[6] = {qRgb(255, 0, 0),     qRgb(0, 255, 0),   qRgb(0, 0, 255),
                             qRgb(255, 255, 255), qRgba(0, 0, 0, 0), qRgba(200, 100, 50, 128)};
    for (int x = 0; x < 6; ++x) source.setPixel(x, 0, colours[x]);
    const QImage gray = quelix::AvatarManager::toGray(source);
    QCOMPARE(gray.format(), QImage::Format_ARGB32);
    QCOMPARE(qRed(gray.pixel(0, 0)), 87);
    QCOMPARE(qGreen(gray.pixel(1, 0)), 127);
    QCOMPARE(qBlue(gray.pixel(2, 0)), 39);
    QCOMPARE(gray.pixel(3, 0), qRgb(255, 255, 255));
    QCOMPARE(qAlpha(gray.pixel(4, 0)), 0);
    QCOMPARE(qAlpha(gray.pixel(5, 0)), 128);
    QCOMPARE(qRed(gray.pixel(5, 0)), qGreen(gray.pixel(5, 0)));
}

void TestAvatarManager::downloadsOnceKeepsFilesAndRefusesGarbage() {
    HttpFixture server([](const HttpFixture::Request& r) {
        HttpFixture::Response resp;
        resp.contentType = "image/png";
        resp.body =
            r.target.startsWith("/bad") ? QByteArray("<html>not found</html>") : png(Qt::red);
        return resp;
    });
    QTemporaryDir tmp;
    const QString source = server.url("/icons/1001.jpg?x-oss-process=style/small");
    QCOMPARE(quelix::AvatarManager::downloadUrl(source),
             server.url("/icons/1001.jpg@1e_150w_150h_1c_0i_1o_80Q_1x_100-1ci.png"));
    {
        quelix::AvatarManager avatars(tmp.path());
        QSignalSpy ready(&avatars, &quelix::AvatarManager::signal_ReceiveAvatar);
        QVERIFY(avatars.requestAvatar("1001", source));
        QVERIFY(avatars.requestAvatar("1001", source));  // already on its way
        QVERIFY(avatars.requestAvatar("1002", server.url("/bad/1002.png")));
        QTRY_COMPARE(ready.size(), 1);
        QTRY_COMPARE(avatars.inFlight(), 0);
        QCOMPARE(ready.first().at(0).toString(), QStringLiteral("1001"));
        QCOMPARE(server.requests().size(), 2);
        QCOMPARE(server.requests().first().target,
                 QByteArray("/icons/1001.jpg@1e_150w_150h_1c_0i_1o_80Q_1x_100-1ci.png"));
        const QString path = avatars.avatarPath("1001");
        QCOMPARE(QImage(quelix::AvatarManager::grayPath(path)).pixel(0, 0), qRgb(87, 87, 87));
        QVERIFY(!QFile::exists(avatars.avatarPath("1002")));  // garbage is not an avatar
        QCOMPARE(avatars.displayPath("1001", false), quelix::AvatarManager::grayPath(path));
    }
    // After a restart the files on disk serve without the network.
    quelix::AvatarManager again(tmp.path());
    QSignalSpy ready(&again, &quelix::AvatarManager::signal_ReceiveAvatar);
    QVERIFY(again.requestAvatar("1001", source));
    QCOMPARE(ready.size(), 1);
    QCOMPARE(server.requests().size(), 2);
}

void TestAvatarManager::fewDownloadsAtATime() {
    HttpFixture server([](const HttpFixture::Request&) {
        HttpFixture::Response resp;
        resp.delayMs = 40;
        resp.contentType = "image/png";
        resp.body = png(Qt::blue);
        return resp;
    });
    QTemporaryDir tmp;
    quelix::AvatarManager avatars(tmp.path());
    QSignalSpy ready(&avatars, &quelix::AvatarManager::signal_ReceiveAvatar);
    for (int i = 0; i < 20; ++i)
        avatars.requestAvatar(QString::number(2000 + i), server.url("/a/%1.png").arg(i));
    QVERIFY(avatars.inFlight() <= quelix::AvatarManager::kMaxInFlight);
    QTRY_COMPARE_WITH_TIMEOUT(ready.size(), 20, 10000);
    QVERIFY(server.maxConcurrent() <= quelix::AvatarManager::kMaxInFlight);
    QVERIFY(server.maxConcurrent() >= 2);
}

QTEST_MAIN(TestAvatarManager)
#include "tst_avatarmanager.moc"

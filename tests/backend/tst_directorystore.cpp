#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "configstore.h"
#include "directoryclient.h"
#include "directorystore.h"
#include "httpfixture.h"
#include "requester.h"

namespace {
QJsonObject dept(const QString& id, const QString& parent, const QString& name = QString()) {
    return {{"id", id},
            {"parentId", parent},
            {"orgName", name.isEmpty() ? "部门" + id : name},
            {"fullNamePinyin", "bumen"},
            {"shortNamePinyin", "bm"}};
}

QJsonObject user(const QJsonValue& id, const QString& section, const QString& name,
                 const QString& full, const QString& shortPy) {
    return {{"id", id},
            {"section", section},
            {"realName", name},
            {"userName", "u" + id.toVariant().toString()},
            {"fullNamePinyin", full},
            {"shortNamePinyin", shortPy},
            {"workNick", "nick"},
            {"userIcon", "http://img/" + id.toVariant().toString()},
            {"md5Sign", "sign-" + id.toVariant().toString()}};
}

QByteArray reply(const QJsonArray& depts, const QJsonArray& users, int code = 0) {
    QJsonObject results{{"allDeptList", depts}, {"allUserList", users}};
    return QJsonDocument(QJsonObject{{"errorCode", code},
                                     {"errorMsg", code ? "失败" : ""},
                                     {"results", results}})
        .toJson(QJsonDocument::Compact);
}

QStringList ids(const QVector<DirectoryStore::Department*>& list) {
    QStringList out;
    for (auto* d : list) out << d->id;
    return out;
}
}  // namespace

class TestDirectoryStore : public QObject {
    Q_OBJECT
private slots:
    void linksDepartmentsWhateverTheirOrder();
    void badTreesStayFinite();
    void colleaguesAndTheirDepartments();
    void badRepliesLeaveTheStoreAsItWas();
    void searchIsCaseSensitiveAndOrdered();
    void readsWhateverValidJsonTheReplyUses();
    void clientFetchesUnknownColleaguesOnce();
};

void TestDirectoryStore::linksDepartmentsWhateverTheirOrder() {
    DirectoryStore s;
    // "2" names "3" as parent, which comes later; "9" names a department that is not there.
    QVERIFY(s.load(reply(
        {dept("2", "3"), dept("1", "0"), dept("3", "1"), dept("9", "404"), dept("4", "1")}, {})));
    QCOMPARE(ids(s.topLevel()), QStringList({"1", "9"}));
    QCOMPARE(ids(s.department("1")->children), QStringList({"3", "4"}));
    QCOMPARE(ids(s.department("3")->children), QStringList({"2"}));
    QCOMPARE(s.colleagueCount(), 0);  // an empty colleague list leaves departments only
    QCOMPARE(s.department("2")->orgName, QStringLiteral("部门2"));
}

void TestDirectoryStore::badTreesStayFinite() {
    DirectoryStore s;
    // A self-parent, a two-cycle, a three-cycle hanging below a root, and a duplicate id.
    QVERIFY(s.load(
        reply({dept("1", "1"), dept("2", "3"), dept("3", "2"), dept("10", ""), dept("11", "13"),
               dept("12", "11"), dept("13", "12"), dept("10", "2", "duplicate")},
              {})));
    QCOMPARE(s.departmentCount(), 7);
    QCOMPARE(s.department("10")->orgName, QStringLiteral("部门10"));  // the first of two wins
    // Every department is reachable from the top exactly once.
    QSet<QString> seen;
    std::function<void(const DirectoryStore::Department*, int)> walk =
        [&](const DirectoryStore::Department* d, int depth) {
            QVERIFY(depth < 10);
            QVERIFY(!seen.contains(d->id));
            seen.insert(d->id);
            for (auto* c : d->children) walk(c, depth + 1);
        };
    for (auto* d : s.topLevel()) walk(d, 0);
    QCOMPARE(seen.size(), 7);
    QVERIFY(ids(s.topLevel()).contains("1"));
    QVERIFY(s.department("1")->children.isEmpty());
}

void TestDirectoryStore::colleaguesAndTheirDepartments() {
    DirectoryStore s;
    QVERIFY(s.load(
        reply({dept("1", ""), dept("2", "1")},
              {user("1001", "2", "王伟", "wangwei", "ww"), user(1002, "1", "李娜", "lina", "ln"),
               user("1003", "77", "无部门", "wubumen", "wbm"), QJsonObject{{"realName", "no id"}},
               user("1001", "1", "王伟", "wangwei", "ww")})));
    QCOMPARE(s.colleagueCount(), 3);
    QVERIFY(s.isUser("1002"));  // a numeric id is kept as its decimal text
    QCOMPARE(s.colleague("1002")->realName(), QStringLiteral("李娜"));
    // The repeated record moved 1001 to department 1; it is listed once, there.
    QCOMPARE(s.department("2")->members.size(), 0);
    QCOMPARE(s.department("1")->members.size(), 2);
    s.setSelfId("1002");
    QCOMPARE(s.md5Sign(), QStringLiteral("sign-1002"));

    const QByteArray more =
        QJsonDocument(
            QJsonObject{{"errorCode", 0},
                        {"results", QJsonArray{user("1004", "2", "赵六", "zhaoliu", "zl")}}})
            .toJson();
    QCOMPARE(s.addColleagues(more), QStringList({"1004"}));
    QCOMPARE(s.department("2")->members.first()->id(), QStringLiteral("1004"));
}

void TestDirectoryStore::badRepliesLeaveTheStoreAsItWas() {
    DirectoryStore s;
    // A byte-order mark before the JSON is not a bad reply; neither is one without
    // departments, which builds an empty directory instead of failing the log-in.
    QVERIFY(s.load("\xEF\xBB\xBF" + reply({dept("1", "")}, {user("5", "1", "甲", "jia", "j")})));
    QCOMPARE(s.colleagueCount(), 1);
    QVERIFY(s.load("{\"errorCode\":0,\"results\":{\"allUserList\":[]}}"));
    QCOMPARE(s.departmentCount(), 0);
    QVERIFY(s.load(reply({dept("1", "")}, {user("5", "1", "甲", "jia", "j")})));
    for (const QByteArray& bad :
         {QByteArray("<html>502</html>"), reply({dept("2", "")}, {}, 500), QByteArray("[]"),
          QByteArray("{\"errorCode\":0,\"results\":{\"allDeptList\":\"oops\"}}")}) {
        QVERIFY(!s.load(bad));
        QCOMPARE(s.colleagueCount(), 1);
        QVERIFY(s.department("1"));
    }
    // A successful reply without departments empties the directory, consistently.
    QVERIFY(s.load("{\"errorCode\":0,\"results\":{\"allDeptList\":[],\"allUserList\":[]}}"));
    QCOMPARE(s.departmentCount(), 0);
    QVERIFY(s.topLevel().isEmpty());
    QVERIFY(s.addColleagues("{\"errorCode\":3,\"errorMsg\":\"x\"}").isEmpty());
}

void TestDirectoryStore::searchIsCaseSensitiveAndOrdered() {
    DirectoryStore s;
    QVERIFY(s.load(reply({dept("1", "")}, {user("10", "1", "李四", "lisi", "ls"),
                                           user("9", "1", "黎明", "liming", "lm"),
                                           user("100", "1", "Lily", "lily", "l")})));
    auto hitIds = [&](const QString& text,
                      DirectoryStore::SearchMode mode = DirectoryStore::SearchMode::Colleagues) {
        QStringList out;
        for (const auto& h : s.search(text, mode)) out << h.id();
        return out;
    };
    QCOMPARE(hitIds("li"), QStringList({"9", "10", "100"}));  // ids ascend as numbers
    QCOMPARE(hitIds("Li"), QStringList({"100"}));             // "Li" does not find "li"
    QCOMPARE(hitIds("李"), QStringList({"10"}));
    QCOMPARE(hitIds("lm"), QStringList({"9"}));
    QVERIFY(hitIds("").isEmpty());
    s.setTribes(
        {{"300", "Quelix 项目", "7", "1", "", false}, {"200", "市场部活动", "7", "1", "", false}});
    QCOMPARE(hitIds("项目", DirectoryStore::SearchMode::Tribes), QStringList({"300"}));
    QCOMPARE(hitIds("li", DirectoryStore::SearchMode::Tribes), QStringList({"300"}));
    QVERIFY(hitIds("Li", DirectoryStore::SearchMode::Tribes).isEmpty());
}

// The organisation reply is read by a parser of its own: it must agree with a general JSON
// reader on escapes, numbers, unknown members and layouts, and refuse what is not JSON.
void TestDirectoryStore::readsWhateverValidJsonTheReplyUses() {
    DirectoryStore s;
    const QByteArray tricky =
        "{ \"results\" : { \"extra\": {\"deep\": [1, {\"x\": [true, null]}]},\n"
        "  \"allDeptList\": [ {\"id\": 1, \"parentId\": null, \"orgName\": \"\\u603b\\u90e8 "
        "\\\"HQ\\\"\"}, 7, \"skip\" ],\n"
        "  \"allUserList\": [ {\"id\": 18446744073709551615, \"section\": \"1\", \"realName\": "
        "\"\\ud83d\\ude00 \\u738b\\t\u4f1f\",\n"
        "      \"userName\": \"a\\/b\\\\c\", \"\\u0069con\": \"x\", \"mobile\": [1,2], \"email\": "
        "{}} ] },\n"
        "  \"errorCode\": \" 0 \", \"errorMsg\": \"\" }";
    QVERIFY(QJsonDocument::fromJson(tricky).isObject());  // valid JSON, as written
    QVERIFY(s.load(tricky));
    QCOMPARE(s.department("1")->orgName, QStringLiteral("总部 \"HQ\""));
    QCOMPARE(s.topLevel().size(), 1);
    const DirectoryStore::Colleague* c = s.colleague("18446744073709551615");
    QVERIFY(c);
    QCOMPARE(c->realName(), QString::fromUtf8("\xF0\x9F\x98\x80 王\t伟"));
    QCOMPARE(c->userName(), QStringLiteral("a/b\\c"));
    QVERIFY(c->mobile().isEmpty());  // not a text: nothing kept
    QCOMPARE(s.department("1")->members.size(), 1);

    // Not JSON, cut short, a failure code, or a department list that is not one: nothing
    // changes.
    const QByteArray broken[] = {
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"2\"}]",
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"2\"}]}} trailing",
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"2\" \"x\":1}]}}",
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"\\q\"}]}}",
        "{\"errorCode\":1,\"results\":{\"allDeptList\":[{\"id\":\"2\"}]}}",
        "{\"results\":{\"allDeptList\":[{\"id\":\"2\"}]}}",
        "{\"errorCode\":0,\"results\":{\"allDeptList\":{\"id\":\"2\"}}}",
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"2\"},]}}",
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"2\"}],\"x\":[[1,{}] 2]}}",
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"2\"}],"
        "\"allUserList\":[{\"id\":\"5\" \"deptId\":\"2\"}]}}",
    };
    for (const QByteArray& bad : broken) {
        QVERIFY2(!s.load(bad), bad.constData());
        QVERIFY(s.department("1"));
        QVERIFY(!s.department("2"));
    }
    // Bytes that are not UTF-8 become replacement characters, not a failed reply.
    QVERIFY(
        s.load("{\"errorCode\":0,\"allDeptList\":[{\"id\":\"3\",\"orgName\":\"a\xff\xfe\"}],"
               "\"allUserList\":[]}"));
    QCOMPARE(s.department("3")->orgName, QStringLiteral("a\uFFFD\uFFFD"));
}

void TestDirectoryStore::clientFetchesUnknownColleaguesOnce() {
    HttpFixture server([](const HttpFixture::Request& r) {
        HttpFixture::Response resp;
        resp.delayMs = 50;
        resp.body =
            r.target.contains("manyUserIds=404")
                ? QByteArray("{\"errorCode\":0,\"results\":[]}")
                : QJsonDocument(QJsonObject{{"errorCode", 0},
                                            {"results", QJsonArray{user("77", "1", "新同事",
                                                                        "xintongshi", "xts")}}})
                      .toJson();
        return resp;
    });
    ConfigStore::instance().setUrl(UrlTable::UrlUsers,
                                   server.url("/work/mobileUserInfo.htm?m=findSomeOne"));
    DirectoryStore s;
    Requester r;
    DirectoryClient client(&r, &s);
    QSignalSpy fetched(&client, &DirectoryClient::colleaguesFetched);
    QSignalSpy failed(&client, &DirectoryClient::colleaguesFailed);
    client.fetchColleagues({"77"});
    client.fetchColleagues({"77"});  // already on its way
    client.fetchColleagues({"404"});
    QTRY_COMPARE(fetched.size(), 1);
    QTRY_COMPARE(failed.size(), 1);
    QCOMPARE(server.requests().size(), 2);
    QCOMPARE(fetched.first().first().toStringList(), QStringList({"77"}));
    QCOMPARE(s.colleague("77")->realName(), QStringLiteral("新同事"));
}

QTEST_GUILESS_MAIN(TestDirectoryStore)
#include "tst_directorystore.moc"

#include "democompany.h"

#include "database.h"
#include "passwordhasher.h"

#include <QDateTime>
#include <QHash>
#include <QRandomGenerator>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>
#include <QVariantList>
#include <QtConcurrent>

const char DemoCompany::kPassword[] = "quelix123";

namespace {

struct Syllable {
    const char* han;
    const char* pinyin;
};

const Syllable kSurnames[] = {
    {"王", "wang"},  {"李", "li"},   {"张", "zhang"}, {"刘", "liu"},  {"陈", "chen"},
    {"杨", "yang"},  {"赵", "zhao"}, {"黄", "huang"}, {"周", "zhou"}, {"吴", "wu"},
    {"徐", "xu"},    {"孙", "sun"},  {"胡", "hu"},    {"朱", "zhu"},  {"高", "gao"},
    {"林", "lin"},   {"何", "he"},   {"郭", "guo"},   {"马", "ma"},   {"罗", "luo"},
    {"梁", "liang"}, {"宋", "song"}, {"郑", "zheng"}, {"谢", "xie"},  {"韩", "han"},
    {"唐", "tang"},  {"冯", "feng"}, {"于", "yu"},    {"董", "dong"}, {"萧", "xiao"},
    {"程", "cheng"}, {"曹", "cao"},  {"袁", "yuan"},  {"邓", "deng"}, {"许", "xu"},
    {"傅", "fu"},    {"沈", "shen"}, {"曾", "zeng"},  {"彭", "peng"}, {"吕", "lv"},
};

const Syllable kGiven[] = {
    {"伟", "wei"},   {"芳", "fang"}, {"娜", "na"},   {"敏", "min"},  {"静", "jing"}, {"丽", "li"},
    {"强", "qiang"}, {"磊", "lei"},  {"军", "jun"},  {"洋", "yang"}, {"勇", "yong"}, {"艳", "yan"},
    {"杰", "jie"},   {"涛", "tao"},  {"明", "ming"}, {"超", "chao"}, {"秀", "xiu"},  {"霞", "xia"},
    {"平", "ping"},  {"刚", "gang"}, {"桂", "gui"},  {"英", "ying"}, {"华", "hua"},  {"玉", "yu"},
    {"萍", "ping"},  {"红", "hong"}, {"晨", "chen"}, {"宇", "yu"},   {"浩", "hao"},  {"凯", "kai"},
    {"欣", "xin"},   {"怡", "yi"},   {"婷", "ting"}, {"雪", "xue"},  {"琳", "lin"},  {"博", "bo"},
    {"文", "wen"},   {"斌", "bin"},  {"鹏", "peng"}, {"辉", "hui"},  {"佳", "jia"},  {"慧", "hui"},
    {"俊", "jun"},   {"帆", "fan"},  {"晓", "xiao"}, {"云", "yun"},  {"峰", "feng"}, {"宁", "ning"},
    {"倩", "qian"},  {"思", "si"},   {"嘉", "jia"},  {"昊", "hao"},  {"子", "zi"},   {"轩", "xuan"},
    {"梓", "zi"},    {"涵", "han"},  {"诗", "shi"},  {"雨", "yu"},   {"天", "tian"}, {"泽", "ze"},
};

struct DeptSeed {
    int parent;  // index into the table, -1 for the root
    const char* name;
    const char* pinyin;  // syllables separated by spaces
};

// Four levels under the company itself.
const DeptSeed kDepartments[] = {
    {-1, "青禾科技", "qing he ke ji"},
    {0, "研发中心", "yan fa zhong xin"},
    {1, "客户端组", "ke hu duan zu"},
    {1, "服务端组", "fu wu duan zu"},
    {3, "接口小组", "jie kou xiao zu"},
    {3, "存储小组", "cun chu xiao zu"},
    {1, "测试组", "ce shi zu"},
    {2, "桌面小组", "zhuo mian xiao zu"},
    {2, "移动小组", "yi dong xiao zu"},
    {0, "产品部", "chan pin bu"},
    {9, "设计组", "she ji zu"},
    {0, "市场部", "shi chang bu"},
    {11, "华东区", "hua dong qu"},
    {11, "华南区", "hua nan qu"},
    {11, "华北区", "hua bei qu"},
    {12, "上海办事处", "shang hai ban shi chu"},
    {12, "杭州办事处", "hang zhou ban shi chu"},
    {0, "销售部", "xiao shou bu"},
    {0, "人事行政部", "ren shi xing zheng bu"},
    {0, "财务部", "cai wu bu"},
    {0, "客服中心", "ke fu zhong xin"},
};

const char* const kDeptWords[][2] = {
    {"研发", "yan fa"}, {"市场", "shi chang"}, {"销售", "xiao shou"}, {"运营", "yun ying"},
    {"客服", "ke fu"},  {"财务", "cai wu"},    {"人事", "ren shi"},   {"物流", "wu liu"},
};

const char* const kProjects[] = {
    "客户端 2.0 版本", "服务端扩容", "华东区年度推广", "新员工培训计划",
    "财务系统迁移",    "客服知识库", "移动端改版",     "数据中心建设",
    "春季招聘",        "产品发布会", "办公室搬迁",     "安全审计",
};

const char* const kTasks[] = {
    "整理需求文档", "完成接口设计", "编写测试用例", "修复登录问题", "准备周报",
    "联系供应商",   "更新部署脚本", "评审设计稿",   "统计季度数据", "安排会议室",
};

struct Name {
    QString han;
    QString full;
    QString shortForm;
};

QString initials(const QString& spaced) {
    QString out;
    for (const QString& s : spaced.split(QLatin1Char(' '), Qt::SkipEmptyParts)) out += s.at(0);
    return out;
}

Name personName(QRandomGenerator& rng) {
    const Syllable& s = kSurnames[rng.bounded(int(std::size(kSurnames)))];
    Name n{QString::fromUtf8(s.han), QString::fromLatin1(s.pinyin),
           QString::fromLatin1(s.pinyin).left(1)};
    const int given = rng.bounded(4) == 0 ? 1 : 2;
    for (int i = 0; i < given; ++i) {
        const Syllable& g = kGiven[rng.bounded(int(std::size(kGiven)))];
        n.han += QString::fromUtf8(g.han);
        n.full += QString::fromLatin1(g.pinyin);
        n.shortForm += QLatin1Char(g.pinyin[0]);
    }
    return n;
}

struct Rows {
    QVariantList deptId, deptParent, deptName, deptFull, deptShort, deptSort;
    QVariantList userId, userDept, userName, realName, workNick, mobile, email, created, full,
        shortForm, secret, openId;
};

bool execBatch(QSqlDatabase& db, const QString& sql, const QList<QVariantList>& columns,
               QString* error) {
    QSqlQuery q(db);
    q.prepare(sql);
    for (const QVariantList& c : columns) q.addBindValue(c);
    if (!q.execBatch()) {
        if (error) *error = q.lastError().text();
        return false;
    }
    return true;
}

QString randomSecret() {
    quint32 raw[4];
    QRandomGenerator::system()->fillRange(raw);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(raw), sizeof raw).toHex());
}

void addPeople(Rows& rows, int count, const QVector<qint64>& depts, QRandomGenerator& rng) {
    QHash<QString, int> taken;
    const QDateTime start(QDate(2023, 3, 1), QTime(9, 0), Qt::UTC);
    for (int i = 0; i < count; ++i) {
        const qint64 id = 10001 + i;
        const Name n = personName(rng);
        const int seen = taken[n.full]++;
        const QString account = seen == 0 ? n.full : n.full + QString::number(seen + 1);
        rows.userId << id;
        rows.userDept << depts[rng.bounded(depts.size())];
        rows.userName << account;
        rows.realName << n.han;
        rows.workNick << QStringLiteral("阿") + n.han.right(1);
        rows.mobile << QStringLiteral("13%1%2")
                           .arg(rng.bounded(10))
                           .arg(rng.bounded(100000000), 8, 10, QLatin1Char('0'));
        rows.email << account + QStringLiteral("@qinghe.example.com");
        rows.created
            << start.addSecs(qint64(i) * 3 * 3600).toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        rows.full << n.full;
        rows.shortForm << n.shortForm;
        rows.secret << randomSecret();
        rows.openId << QStringLiteral("qx%1").arg(id);
    }
}

bool write(Database* database, const Rows& rows, int hashIterations, QString* error,
           const std::function<bool(QSqlDatabase&)>& extra) {
    // Hashing is by far the slowest part of seeding; it spreads over every core.
    const PasswordHasher hasher(hashIterations);
    const QVector<int> indexes = [&] {
        QVector<int> v(rows.userId.size());
        std::iota(v.begin(), v.end(), 0);
        return v;
    }();
    const QList<QString> hashes = QtConcurrent::blockingMapped<QList<QString>>(
        indexes, std::function<QString(int)>([&](int) {
            return hasher.hash(QString::fromLatin1(DemoCompany::kPassword));
        }));
    QVariantList hashColumn;
    QVariantList companyColumn;
    for (const QString& h : hashes) {
        hashColumn << h;
        companyColumn << DemoCompany::kCompanyId;
    }
    QVariantList deptCompany;
    for (int i = 0; i < rows.deptId.size(); ++i) deptCompany << DemoCompany::kCompanyId;

    QSqlDatabase db = database->connection();
    if (!db.transaction()) {
        if (error) *error = db.lastError().text();
        return false;
    }
    QSqlQuery q(db);
    q.prepare(QStringLiteral("INSERT INTO company (id, name, crm_sys) VALUES (?, ?, ?)"));
    q.addBindValue(DemoCompany::kCompanyId);
    q.addBindValue(QStringLiteral("青禾科技有限公司"));
    q.addBindValue(QStringLiteral("0"));
    const bool ok =
        q.exec() &&
        execBatch(db,
                  QStringLiteral("INSERT INTO dept (id, company_id, parent_id, org_name,"
                                 " full_pinyin, short_pinyin, sort_order) VALUES (?,?,?,?,?,?,?)"),
                  {rows.deptId, deptCompany, rows.deptParent, rows.deptName, rows.deptFull,
                   rows.deptShort, rows.deptSort},
                  error) &&
        execBatch(
            db,
            QStringLiteral("INSERT INTO users (id, company_id, dept_id, user_name, real_name,"
                           " work_nick, mobile, email, date_created, full_pinyin, short_pinyin,"
                           " password_hash, im_secret, open_id)"
                           " VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?)"),
            {rows.userId, companyColumn, rows.userDept, rows.userName, rows.realName, rows.workNick,
             rows.mobile, rows.email, rows.created, rows.full, rows.shortForm, hashColumn,
             rows.secret, rows.openId},
            error) &&
        (!extra || extra(db));
    if (!ok) {
        if (error && error->isEmpty()) *error = q.lastError().text();
        db.rollback();
        return false;
    }
    return db.commit();
}

}  // namespace

bool DemoCompany::isEmpty(Database* db) {
    QSqlQuery q(db->connection());
    return q.exec(QStringLiteral("SELECT COUNT(*) FROM company")) && q.next() &&
           q.value(0).toInt() == 0;
}

bool DemoCompany::seedDemo(Database* db, int hashIterations, QString* error) {
    if (!isEmpty(db)) {
        if (error) *error = QStringLiteral("the directory already holds a company");
        return false;
    }
    QRandomGenerator rng(20240601);
    Rows rows;
    QVector<qint64> deptIds;
    for (int i = 0; i < int(std::size(kDepartments)); ++i) {
        const DeptSeed& d = kDepartments[i];
        const QString spaced = QString::fromLatin1(d.pinyin);
        rows.deptId << qint64(101 + i);
        rows.deptParent << qint64(d.parent < 0 ? 0 : 101 + d.parent);
        rows.deptName << QString::fromUtf8(d.name);
        rows.deptFull << QString(spaced).remove(QLatin1Char(' '));
        rows.deptShort << initials(spaced);
        rows.deptSort << i;
        if (i > 0) deptIds << qint64(101 + i);
    }
    addPeople(rows, kDemoColleagues, deptIds, rng);

    auto projects = [&](QSqlDatabase& sql) {
        QVariantList pid, pcompany, ptitle, powner, pcreated, mp, mu, tid, tp, ttitle, tdesc,
            tcreator, texec, tdeadline, tstatus;
        qint64 taskId = 70001;
        for (int p = 0; p < int(std::size(kProjects)); ++p) {
            const qint64 id = 50001 + p;
            // The first two colleagues share every project, so two demo users can meet in
            // any project tribe; the first owns the even ones.
            const qint64 owner = p % 2 == 0 ? 10001 : 10001 + 2 + rng.bounded(kDemoColleagues - 2);
            QList<qint64> members{owner};
            for (qint64 m : {qint64(10001), qint64(10002)}) {
                if (!members.contains(m)) members << m;
            }
            const int size = 6 + rng.bounded(15);
            while (members.size() < size) {
                const qint64 m = 10001 + rng.bounded(kDemoColleagues);
                if (!members.contains(m)) members << m;
            }
            pid << id;
            pcompany << kCompanyId;
            ptitle << QString::fromUtf8(kProjects[p]);
            powner << owner;
            pcreated << QStringLiteral("2024-%1-01 10:00:00").arg(p + 1, 2, 10, QLatin1Char('0'));
            for (qint64 m : members) {
                mp << id;
                mu << m;
            }
            const int tasks = 3 + rng.bounded(6);
            for (int t = 0; t < tasks; ++t) {
                tid << taskId++;
                tp << id;
                ttitle << QString::fromUtf8(kTasks[rng.bounded(int(std::size(kTasks)))]);
                tdesc << QStringLiteral("%1：请在截止日期前完成，并在群里同步进展。")
                             .arg(QString::fromUtf8(kProjects[p]));
                tcreator << owner;
                texec << members[rng.bounded(members.size())];
                tdeadline << (rng.bounded(4) == 0
                                  ? QStringLiteral("")
                                  : QStringLiteral("2026-12-%1")
                                        .arg(1 + rng.bounded(28), 2, 10, QLatin1Char('0')));
                tstatus << rng.bounded(4);
            }
        }
        return execBatch(sql,
                         QStringLiteral("INSERT INTO project (id, company_id, title, owner_id,"
                                        " date_created) VALUES (?,?,?,?,?)"),
                         {pid, pcompany, ptitle, powner, pcreated}, error) &&
               execBatch(
                   sql,
                   QStringLiteral("INSERT INTO project_member (project_id, user_id) VALUES (?,?)"),
                   {mp, mu}, error) &&
               execBatch(sql,
                         QStringLiteral("INSERT INTO task (id, project_id, title, description,"
                                        " creator_id, executor_id, deadline, status)"
                                        " VALUES (?,?,?,?,?,?,?,?)"),
                         {tid, tp, ttitle, tdesc, tcreator, texec, tdeadline, tstatus}, error);
    };
    return write(db, rows, hashIterations, error, projects);
}

bool DemoCompany::seedGenerated(Database* db, int colleagues, int departments, int hashIterations,
                                QString* error) {
    if (!isEmpty(db)) {
        if (error) *error = QStringLiteral("the directory already holds a company");
        return false;
    }
    colleagues = qMax(1, colleagues);
    departments = qMax(1, departments);
    QRandomGenerator rng(quint32(colleagues) * 7919u + quint32(departments));
    Rows rows;
    QVector<qint64> deptIds;
    for (int i = 0; i < departments; ++i) {
        const auto& word = kDeptWords[i % int(std::size(kDeptWords))];
        const QString spaced = QString::fromLatin1(word[1]);
        const QString number = QString::number(i + 1);
        rows.deptId << qint64(101 + i);
        // An eight-way tree: 5,000 departments are five levels deep.
        rows.deptParent << qint64(i == 0 ? 0 : 101 + (i - 1) / 8);
        rows.deptName << QString::fromUtf8(word[0]) + number + QStringLiteral("部");
        rows.deptFull << QString(spaced).remove(QLatin1Char(' ')) + number + QStringLiteral("bu");
        rows.deptShort << initials(spaced) + number + QStringLiteral("b");
        rows.deptSort << i;
        deptIds << qint64(101 + i);
    }
    addPeople(rows, colleagues, deptIds, rng);
    return write(db, rows, hashIterations, error, nullptr);
}

QStringList DemoCompany::accounts(Database* db, int count) {
    QSqlQuery q(db->connection());
    q.prepare(
        QStringLiteral("SELECT user_name FROM users WHERE id NOT IN"
                       " (SELECT user_id FROM task_assistant) ORDER BY id LIMIT ?"));
    q.addBindValue(count);
    QStringList out;
    if (q.exec()) {
        while (q.next()) out << q.value(0).toString();
    }
    return out;
}

QVector<ImProvisioner::Account> DemoCompany::imAccounts(Database* db) {
    QSqlQuery q(db->connection());
    q.setForwardOnly(true);
    QVector<ImProvisioner::Account> out;
    if (q.exec(QStringLiteral("SELECT id, im_secret FROM users ORDER BY id"))) {
        while (q.next()) out.append({q.value(0).toString(), q.value(1).toString()});
    }
    return out;
}

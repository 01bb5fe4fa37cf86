#pragma once

#include <QByteArray>
#include <QString>
#include <QVarLengthArray>

#include <functional>

class Colleague;

// Reads an organisation reply in one pass over its UTF-8 bytes, without building a JSON
// document first: the reply of a large company is tens of megabytes, and the directory
// wants the records, not the document. Accepts any valid JSON; unknown members and values
// of other types are skipped. The envelope's code is checked; the lists may sit inside
// "results" or beside it.
class OrgReplyParser {
public:
    struct Department {
        QString id;
        QString orgName;
        QString parentId;
        QString fullNamePinyin;
        QString shortNamePinyin;
    };
    using DepartmentSink = std::function<void(Department&&)>;
    using ColleagueSink = std::function<void(Colleague&&)>;

    OrgReplyParser(DepartmentSink departments, ColleagueSink colleagues);

    // False for a body that is not a JSON object (after an optional byte-order mark) or a
    // failure code; a reply without a department list has none. Records reach the sinks
    // as they are read.
    bool parse(const QByteArray& body);
    const QString& errorMsg() const { return errorMsg_; }

private:
    enum class Context { Top, Results };

    bool object(Context context);
    bool departments();
    bool colleagues();
    bool skipValue(int depth = 0);
    bool string(QVarLengthArray<QChar, 256>* out);
    bool skipString();
    bool scalarText(QVarLengthArray<QChar, 256>* out);
    bool key(const char** begin, int* length, QVarLengthArray<QChar, 256>* decoded);
    // Where a container stands: another item follows, it ended (its bracket consumed), or
    // the reply is broken.
    enum class Next { More, Done, Broken };

    void ws();
    bool expect(char c);
    // At a container's opening bracket: Done when it is empty.
    Next enter(char open, char close);
    // After one of its items: a comma, the closing bracket or something that breaks it.
    Next afterItem(char close);

    const char* p_ = nullptr;
    const char* end_ = nullptr;
    DepartmentSink departmentSink_;
    ColleagueSink colleagueSink_;
    bool codeSeen_ = false;
    bool success_ = false;
    bool deptListSeen_ = false;
    QString errorMsg_;
};

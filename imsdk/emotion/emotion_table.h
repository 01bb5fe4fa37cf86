#pragma once

// The emoticons the SDK offers, in panel order: short code used in message text, picture
// name and the Unicode emoji the picture is drawn from (at build time, with the system's
// colour emoji font).
namespace emotion_table {

struct Row {
    const char* code;
    const char* name;
    char32_t emoji;
};

constexpr Row kRows[] = {
    {"[smile]", "smile", U'\U0001F642'},       {"[grin]", "grin", U'\U0001F600'},
    {"[laugh]", "laugh", U'\U0001F602'},       {"[wink]", "wink", U'\U0001F609'},
    {"[blush]", "blush", U'\U0001F60A'},       {"[love]", "love", U'\U0001F60D'},
    {"[kiss]", "kiss", U'\U0001F618'},         {"[tongue]", "tongue", U'\U0001F61B'},
    {"[cool]", "cool", U'\U0001F60E'},         {"[think]", "think", U'\U0001F914'},
    {"[neutral]", "neutral", U'\U0001F610'},   {"[smirk]", "smirk", U'\U0001F60F'},
    {"[sad]", "sad", U'\U0001F641'},           {"[cry]", "cry", U'\U0001F622'},
    {"[sob]", "sob", U'\U0001F62D'},           {"[angry]", "angry", U'\U0001F620'},
    {"[shock]", "shock", U'\U0001F632'},       {"[fear]", "fear", U'\U0001F628'},
    {"[sweat]", "sweat", U'\U0001F605'},       {"[sleepy]", "sleepy", U'\U0001F62A'},
    {"[sick]", "sick", U'\U0001F912'},         {"[shush]", "shush", U'\U0001F92B'},
    {"[facepalm]", "facepalm", U'\U0001F926'}, {"[shrug]", "shrug", U'\U0001F937'},
    {"[thumbsup]", "thumbsup", U'\U0001F44D'}, {"[thumbsdown]", "thumbsdown", U'\U0001F44E'},
    {"[clap]", "clap", U'\U0001F44F'},         {"[ok]", "ok", U'\U0001F44C'},
    {"[pray]", "pray", U'\U0001F64F'},         {"[muscle]", "muscle", U'\U0001F4AA'},
    {"[wave]", "wave", U'\U0001F44B'},         {"[handshake]", "handshake", U'\U0001F91D'},
    {"[heart]", "heart", U'\U00002764'},       {"[broken]", "broken", U'\U0001F494'},
    {"[fire]", "fire", U'\U0001F525'},         {"[star]", "star", U'\U00002B50'},
    {"[party]", "party", U'\U0001F389'},       {"[gift]", "gift", U'\U0001F381'},
    {"[coffee]", "coffee", U'\U00002615'},     {"[beer]", "beer", U'\U0001F37A'},
    {"[cake]", "cake", U'\U0001F382'},         {"[rose]", "rose", U'\U0001F339'},
    {"[sun]", "sun", U'\U00002600'},           {"[moon]", "moon", U'\U0001F319'},
    {"[rocket]", "rocket", U'\U0001F680'},     {"[check]", "check", U'\U00002705'},
    {"[cross]", "cross", U'\U0000274C'},       {"[question]", "question", U'\U00002753'},
};

}  // namespace emotion_table

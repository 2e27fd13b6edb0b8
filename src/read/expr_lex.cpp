// The lexer of !IF and !ELSEIF conditions: one token of look-ahead over the
// expanded text, no diagnostics of its own.
//
// An invalid character is held in the look-ahead like any other token: the
// flag held says whether look_ahead carries a token, since TOK_INVALID is 0.
// So a character that starts no token stays where the parse met it, and a
// text such as "1 @" or "1 @ + 2" ends with that token still waiting instead
// of TOK_END, which the evaluator turns into its fatal report. Passing over it
// would quietly accept text that is no expression.
#include "read/expression.h"

#include "platform/system.h"

namespace {

constexpr uint32_t TOKEN_TEXT_LIMIT = TOKEN_TEXT_UNITS - 1;

// A keyword stands only in front of '(', a blank or a tab; anything else
// directly behind it makes it part of something that is no keyword.
bool ends_keyword(char16_t c) {
    return c == u'(' || c == u' ' || c == u'\t';
}

// Steps over the character at *p when it is c: the second half of a
// two-character operator.
bool step_over(const char16_t **p, char16_t c) {
    if (**p != c) return false;
    ++*p;
    return true;
}

// True when word, in any mixture of case, stands at text and ends there as a
// keyword should.
bool match_keyword(const char16_t *text, const char16_t *word) {
    const size_t length = str_len(word);
    return str_nicmp(text, word, length) == 0 && ends_keyword(text[length]);
}

// p stands behind the opening quote q. Returns where the scan goes on.
const char16_t *scan_string(expr_lexer *lexer, const char16_t *p, char16_t q) {
    uint32_t n = 0;
    while (*p != q && *p != 0 && n < TOKEN_TEXT_LIMIT)
        lexer->token_text[n++] = *p++;
    lexer->token_text[n] = 0;
    // A string cut at the limit goes on as expression text; no quote is eaten.
    if (*p == q) ++p;
    return p;
}

// p stands behind the first digit. The digits are checked at conversion, not here.
const char16_t *scan_number(expr_lexer *lexer, const char16_t *p, char16_t first) {
    uint32_t n = 0;
    lexer->token_text[n++] = first;
    bool hex = false;
    if (first == u'0' && (*p == u'x' || *p == u'X')) {
        lexer->token_text[n++] = *p++;
        hex = true;
    }
    while (n < TOKEN_TEXT_LIMIT && (hex ? is_xdigit(*p) : is_digit(*p)))
        lexer->token_text[n++] = *p++;
    lexer->token_text[n] = 0;
    return p;
}

// One scan from pos; leaves pos behind the token.
uint32_t scan_token(expr_lexer *lexer) {
    lexer->token_text[0] = 0;
    const char16_t *p = lexer->pos;
    // Only blanks and tabs: a line feed left by a continuation is no white space here.
    while (*p == u' ' || *p == u'\t')
        ++p;
    if (*p == 0) {
        lexer->pos = p;
        return TOK_END;
    }
    const char16_t *start = p;
    const char16_t c = *p++;
    uint32_t token = TOK_INVALID;
    switch (c) {
    case u'!':
        token = step_over(&p, u'=') ? TOK_NE : TOK_NOT;
        break;
    case u'=':
        // A lone '=' is no operator; it is stepped over all the same.
        token = step_over(&p, u'=') ? TOK_EQ : TOK_INVALID;
        break;
    case u'<':
        token = step_over(&p, u'<') ? TOK_SHL : step_over(&p, u'=') ? TOK_LE : TOK_LT;
        break;
    case u'>':
        token = step_over(&p, u'>') ? TOK_SHR : step_over(&p, u'=') ? TOK_GE : TOK_GT;
        break;
    case u'&':
        token = step_over(&p, u'&') ? TOK_LOGICAL_AND : TOK_BIT_AND;
        break;
    case u'|':
        token = step_over(&p, u'|') ? TOK_LOGICAL_OR : TOK_BIT_OR;
        break;
    case u'%':
        token = TOK_MOD;
        break;
    case u'(':
        token = TOK_LPAREN;
        break;
    case u')':
        token = TOK_RPAREN;
        break;
    case u'*':
        token = TOK_MUL;
        break;
    case u'+':
        token = TOK_ADD;
        break;
    case u'-':
        token = TOK_SUB;
        break;
    case u'/':
        token = TOK_DIV;
        break;
    case u'[':
        token = TOK_LBRACKET;
        break;
    case u']':
        token = TOK_RBRACKET;
        break;
    case u'^':
        token = TOK_BIT_XOR;
        break;
    case u'~':
        token = TOK_COMPLEMENT;
        break;
    case u'"':
    case u'\'':
        p = scan_string(lexer, p, c);
        token = TOK_STRING;
        break;
    case u'd':
    case u'D':
        if (match_keyword(start, u"defined")) {
            p = start + 7;
            token = TOK_DEFINED;
        }
        break;
    case u'e':
    case u'E':
        if (match_keyword(start, u"exist")) {
            p = start + 5;
            token = TOK_EXIST;
        } else if (match_keyword(start, u"exists")) {
            p = start + 6;
            token = TOK_EXIST;
        }
        break;
    default:
        if (is_digit(c)) {
            p = scan_number(lexer, p, c);
            token = TOK_NUMBER;
        }
        // Every other character starts nothing, control characters and all
        // beyond ASCII included: the language has no bare words.
        break;
    }
    lexer->pos = p;
    return token;
}

} // namespace

void init_lexer(expr_lexer *lexer, const char16_t *text) {
    lexer->pos = text;
    lexer->look_ahead = 0;
    lexer->held = false;
    lexer->token_text[0] = 0;
}

uint32_t next_token(expr_lexer *lexer) {
    if (lexer->held) {
        const uint32_t token = lexer->look_ahead;
        lexer->look_ahead = 0;
        lexer->held = false;
        return token;
    }
    return scan_token(lexer);
}

uint32_t peek_token(expr_lexer *lexer) {
    if (!lexer->held) {
        lexer->look_ahead = scan_token(lexer);
        lexer->held = true;
    }
    return lexer->look_ahead;
}

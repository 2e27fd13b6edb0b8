// Condition expressions of !IF and !ELSEIF: the lexer and the evaluator.
#pragma once

#include <cstdint>

// Tokens of a condition.
enum expr_token : uint32_t {
    TOK_INVALID = 0,      // any character that starts no other token
    TOK_NUMBER = 1,       // digits, in token_text
    TOK_STRING = 2,       // quoted text without its quotes, in token_text
    TOK_NOT = 3,          // !
    TOK_COMPLEMENT = 4,   // ~
    TOK_MUL = 5,          // *
    TOK_DIV = 6,          // /
    TOK_MOD = 7,          // %
    TOK_ADD = 8,          // +
    TOK_SUB = 9,          // -
    TOK_SHL = 10,         // <<
    TOK_SHR = 11,         // >>
    TOK_LT = 12,          // <
    TOK_LE = 13,          // <=
    TOK_GT = 14,          // >
    TOK_GE = 15,          // >=
    TOK_EQ = 16,          // ==
    TOK_NE = 17,          // !=
    TOK_LOGICAL_AND = 18, // &&
    TOK_BIT_AND = 19,     // &
    TOK_BIT_XOR = 20,     // ^
    TOK_LOGICAL_OR = 21,  // ||
    TOK_BIT_OR = 22,      // |
    TOK_LPAREN = 23,      // (
    TOK_RPAREN = 24,      // )
    TOK_LBRACKET = 25,    // [
    TOK_RBRACKET = 26,    // ]
    TOK_DEFINED = 27,     // defined
    TOK_EXIST = 28,       // exist or exists
    TOK_END = 29,         // end of the text
};

constexpr uint32_t TOKEN_TEXT_UNITS = 256; // up to 255 characters and a null

// One per evaluation. The evaluator reads raw text at pos behind [ and behind
// the ( of defined and exist. An invalid character is held like any other
// token, so that text which is no expression, "1 @" included, always reaches
// the fatal report instead of being passed over.
struct expr_lexer {
    const char16_t *pos;                   // where the next scan starts
    uint32_t look_ahead;                   // token held by peek_token
    bool held;                             // look_ahead holds a token, TOK_INVALID included
    char16_t token_text[TOKEN_TEXT_UNITS]; // text of the last number or string
};

void init_lexer(expr_lexer *lexer, const char16_t *text);
// Consumes and returns a token (the held one, if any).
uint32_t next_token(expr_lexer *lexer);
// Returns the next token without consuming it.
uint32_t peek_token(expr_lexer *lexer);

// Decides a condition text (after macro expansion, not empty): nonzero for
// true. An invalid expression is fatal.
int eval_condition(const char16_t *text);

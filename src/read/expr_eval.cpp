// Evaluation of !IF and !ELSEIF conditions: a recursive descent that computes
// while it parses, with no tree. Eleven levels, lowest precedence first:
//
//   1  expression -> and ('||' and)*
//   2  and        -> bit_or ('&&' bit_or)*
//   3  bit_or     -> bit_xor ('|' bit_xor)*
//   4  bit_xor    -> bit_and ('^' bit_and)*
//   5  bit_and    -> equality ('&' equality)*
//   6  equality   -> relation (('==' | '!=') relation)*
//   7  relation   -> shift (('<' | '<=' | '>' | '>=') shift)*
//   8  shift      -> sum (('<<' | '>>') sum)*
//   9  sum        -> product (('+' | '-') product)*
//   10 product    -> unary (('*' | '/' | '%') unary)*
//   11 unary      -> ('!' | '~' | '-') unary | number | string | '(' expression ')'
//                  | '[' command ']' | 'defined' '(' name ')'
//                  | ('exist' | 'exists') '(' path ')'
//
// Every binary level is left-associative, comparisons included, so 1 < 2 < 3
// is (1 < 2) < 3. There is no short-circuit, and an invalid value does not stop
// the parse: every [command] met runs, and only the end of the text decides
// whether the condition stands or is fatal.
//
// Levels 1 to 10 are climbed by precedence in one function rather than
// descended one call per level: the parse, and so the order in which operands
// are evaluated, is the same, but a '(' costs two stack frames instead of
// eleven.
//
// Numbers are 32 bits and wrap; the arithmetic is done on unsigned values so
// that no overflow is ever undefined.
//
// A number compared with a text gives an invalid value, so the condition is
// fatal: no order between the two kinds would mean anything in a makefile, and
// such a comparison is nearly always a missing pair of quotes.
//
// Nesting is limited: each '(' and each unary operator goes one level deeper,
// and a condition deeper than NESTING_LIMIT is fatal as an invalid expression.
// Nobody writes a condition that deep, and the limit keeps a runaway text from
// overflowing the stack, whatever stack the process was given.
#include "read/expression.h"

#include <cstdlib>

#include "exec/exec.h"
#include "macro/macro.h"
#include "platform/system.h"
#include "run/report.h"

namespace {

enum value_kind : uint32_t {
    VALUE_INVALID = 0, // not a value: malformed, out of range, or from a failed operation
    VALUE_NUMBER = 1,  // payload.number
    VALUE_TEXT = 2,    // payload.text, owned by the value
};

union value_payload {
    int32_t number;
    char16_t *text;
};

struct expr_value {
    value_payload payload;
    uint32_t kind;
};

constexpr uint32_t LEVEL_EQUALITY = 6;
constexpr uint32_t LEVEL_RELATION = 7;
constexpr uint32_t NESTING_LIMIT = 1000;

uint32_t nesting_depth = 0; // '(' and unary operators open around the current primary

uint32_t common_kind(uint32_t a, uint32_t b) {
    if (a == VALUE_INVALID || b == VALUE_INVALID) return VALUE_INVALID;
    if (a == VALUE_TEXT || b == VALUE_TEXT) return VALUE_TEXT;
    return VALUE_NUMBER;
}

int32_t value_number(const expr_value *v) {
    return v->kind == VALUE_NUMBER ? v->payload.number : 0;
}

void release_value(expr_value *v) {
    if (v->kind != VALUE_TEXT) return;
    free(v->payload.text);
    v->payload.number = 0;
    v->kind = VALUE_INVALID;
}

void set_invalid(expr_value *v) {
    release_value(v);
    v->payload.number = 0;
    v->kind = VALUE_INVALID;
}

void set_number(expr_value *v, int32_t number) {
    v->payload.number = number;
    v->kind = VALUE_NUMBER;
}

// The two's complement reading of a 32-bit pattern.
int32_t to_signed(uint32_t bits) {
    return static_cast<int32_t>(bits);
}

bool is_blank(char16_t c) {
    return c == u' ' || c == u'\t';
}

const char16_t *skip_blanks(const char16_t *p) {
    while (is_blank(*p))
        ++p;
    return p;
}

// Binary level of a token, 1 to 10; 0 for a token that is no binary operator.
uint32_t operator_level(uint32_t token) {
    switch (token) {
    case TOK_LOGICAL_OR:
        return 1;
    case TOK_LOGICAL_AND:
        return 2;
    case TOK_BIT_OR:
        return 3;
    case TOK_BIT_XOR:
        return 4;
    case TOK_BIT_AND:
        return 5;
    case TOK_EQ:
    case TOK_NE:
        return LEVEL_EQUALITY;
    case TOK_LT:
    case TOK_LE:
    case TOK_GT:
    case TOK_GE:
        return LEVEL_RELATION;
    case TOK_SHL:
    case TOK_SHR:
        return 8;
    case TOK_ADD:
    case TOK_SUB:
        return 9;
    case TOK_MUL:
    case TOK_DIV:
    case TOK_MOD:
        return 10;
    default:
        return 0;
    }
}

// Leaves the number in a and releases both texts; the result is 1 or 0.
void apply_comparison(uint32_t token, expr_value *a, expr_value *b) {
    int order;
    if (a->kind == VALUE_NUMBER && b->kind == VALUE_NUMBER) {
        const int32_t x = a->payload.number, y = b->payload.number;
        order = x < y ? -1 : x > y ? 1 : 0;
    } else if (a->kind == VALUE_TEXT && b->kind == VALUE_TEXT) {
        order = str_cmp(a->payload.text, b->payload.text);
    } else {
        // Invalid on either side, or a number against a text.
        set_invalid(a);
        set_invalid(b);
        return;
    }
    set_invalid(a);
    set_invalid(b);
    bool holds = false;
    switch (token) {
    case TOK_EQ:
        holds = order == 0;
        break;
    case TOK_NE:
        holds = order != 0;
        break;
    case TOK_LT:
        holds = order < 0;
        break;
    case TOK_LE:
        holds = order <= 0;
        break;
    case TOK_GT:
        holds = order > 0;
        break;
    case TOK_GE:
        holds = order >= 0;
        break;
    default:
        break;
    }
    set_number(a, holds ? 1 : 0);
}

// a takes the outcome of "a token b"; b is left invalid.
void apply_binary(uint32_t token, expr_value *a, expr_value *b) {
    const uint32_t level = operator_level(token);
    if (level == LEVEL_EQUALITY || level == LEVEL_RELATION) {
        apply_comparison(token, a, b);
        return;
    }
    if (common_kind(a->kind, b->kind) != VALUE_NUMBER) {
        set_invalid(a);
        set_invalid(b);
        return;
    }
    const int32_t x = value_number(a), y = value_number(b);
    const uint32_t ux = static_cast<uint32_t>(x), uy = static_cast<uint32_t>(y);
    const uint32_t shift = uy & 31u;
    set_invalid(b);
    switch (token) {
    case TOK_MUL:
        set_number(a, to_signed(ux * uy));
        break;
    case TOK_ADD:
        set_number(a, to_signed(ux + uy));
        break;
    case TOK_SUB:
        set_number(a, to_signed(ux - uy));
        break;
    case TOK_DIV:
        // -2147483648 / -1 has no 32-bit quotient in C++; the rule is -a, wrapping.
        if (y == 0)
            set_invalid(a);
        else
            set_number(a, y == -1 ? to_signed(0u - ux) : x / y);
        break;
    case TOK_MOD:
        if (y == 0)
            set_invalid(a);
        else
            set_number(a, y == -1 ? 0 : x % y);
        break;
    case TOK_SHL:
        set_number(a, to_signed(ux << shift));
        break;
    // The sign bit is copied in: a negative value is shifted through its complement.
    case TOK_SHR:
        set_number(a, x < 0 ? ~(~x >> shift) : x >> shift);
        break;
    case TOK_BIT_AND:
        set_number(a, to_signed(ux & uy));
        break;
    case TOK_BIT_XOR:
        set_number(a, to_signed(ux ^ uy));
        break;
    case TOK_BIT_OR:
        set_number(a, to_signed(ux | uy));
        break;
    case TOK_LOGICAL_AND:
        set_number(a, x != 0 && y != 0 ? 1 : 0);
        break;
    case TOK_LOGICAL_OR:
        set_number(a, x != 0 || y != 0 ? 1 : 0);
        break;
    default:
        set_invalid(a);
        break;
    }
}

void apply_unary(uint32_t token, expr_value *v) {
    if (v->kind != VALUE_NUMBER) {
        set_invalid(v);
        return;
    }
    const int32_t x = v->payload.number;
    switch (token) {
    case TOK_NOT:
        set_number(v, x == 0 ? 1 : 0);
        break;
    case TOK_COMPLEMENT:
        set_number(v, ~x);
        break;
    case TOK_SUB:
        set_number(v, to_signed(0u - static_cast<uint32_t>(x)));
        break;
    default:
        set_invalid(v);
        break;
    }
}

// The base follows from the form; the whole text must be digits of it, so
// "08" and a bare "0x" are invalid, as is anything above 0x7FFFFFFF.
void convert_number(const char16_t *digits, expr_value *out) {
    const char16_t *end = nullptr;
    bool range_error = false;
    const int32_t number = str_to_long(digits, &end, &range_error);
    if (range_error || end == digits || *end != 0)
        set_invalid(out);
    else
        set_number(out, number);
}

// Consumes the closer when it is the next token; otherwise the value is lost.
void expect_token(expr_lexer *lexer, uint32_t closer, expr_value *out) {
    if (peek_token(lexer) == closer)
        next_token(lexer);
    else
        set_invalid(out);
}

// Behind '[': the raw text up to the first ']' is a command, and its exit
// code the value. The command runs even if the ']' turns out to be missing.
void eval_command(expr_lexer *lexer, expr_value *out) {
    const char16_t *start = skip_blanks(lexer->pos);
    const char16_t *end = start;
    while (*end != 0 && *end != u']')
        ++end;
    lexer->pos = end;
    if (end > start) {
        char16_t *command_text = str_dup_n(start, static_cast<size_t>(end - start));
        const char16_t *rest = command_text;
        bool plus = false;
        // The prefixes of a command line may stand here too; only '+' matters.
        for (;; ++rest) {
            if (*rest == u'+')
                plus = true;
            else if (!is_blank(*rest) && *rest != u'-' && *rest != u'@')
                break;
        }
        uint32_t exit_code = 0;
        const uint32_t failed = spawn_command(rest, &exit_code, plus, nullptr);
        if (failed) {
            report(failed + WARNING);
            exit_code = 255;
        }
        set_number(out, to_signed(exit_code));
        free(command_text);
    }
    expect_token(lexer, TOK_RBRACKET, out);
}

// Behind 'defined': '(' name ')'. A macro the environment holds counts.
void eval_defined(expr_lexer *lexer, expr_value *out) {
    if (peek_token(lexer) != TOK_LPAREN) return;
    next_token(lexer);
    const char16_t *start = skip_blanks(lexer->pos);
    const char16_t *end = start;
    while (*end != 0 && !is_blank(*end) && *end != u')')
        ++end;
    lexer->pos = end;
    if (end > start) {
        char16_t *name = str_dup_n(start, static_cast<size_t>(end - start));
        set_number(out, find_macro(name, false) ? 1 : 0);
        free(name);
    }
    expect_token(lexer, TOK_RPAREN, out);
}

// Behind 'exist' or 'exists': '(' path ')', the path perhaps quoted. Without
// quotes the blanks up to the ')' are part of the path.
void eval_exist(expr_lexer *lexer, expr_value *out) {
    if (peek_token(lexer) != TOK_LPAREN) return;
    next_token(lexer);
    const char16_t *start = skip_blanks(lexer->pos);
    char16_t closer = u')';
    if (*start == u'"' || *start == u'\'') closer = *start++;
    const char16_t *end = start;
    while (*end != 0 && *end != closer)
        ++end;
    // A closing quote is eaten here; a ')' is left for the token check.
    lexer->pos = (*end != 0 && closer != u')') ? end + 1 : end;
    if (end > start) {
        char16_t *path = str_dup_n(start, static_cast<size_t>(end - start));
        set_number(out, is_directory(path) ? 1 : 0);
        free(path);
    }
    expect_token(lexer, TOK_RPAREN, out);
}

void eval_binary(expr_lexer *lexer, uint32_t min_level, expr_value *out);

// Level 1: a whole expression.
void eval_expression(expr_lexer *lexer, expr_value *out) {
    eval_binary(lexer, 1, out);
}

void enter_nesting() {
    if (++nesting_depth > NESTING_LIMIT) report(MSG_BAD_EXPRESSION + FATAL);
    check_stack();
}

void leave_nesting() {
    --nesting_depth;
}

void eval_unary(expr_lexer *lexer, expr_value *out) {
    out->payload.number = 0;
    out->kind = VALUE_INVALID;
    const uint32_t token = peek_token(lexer);
    switch (token) {
    case TOK_NUMBER:
        next_token(lexer);
        convert_number(lexer->token_text, out);
        break;
    case TOK_STRING:
        next_token(lexer);
        out->payload.text = str_dup(lexer->token_text);
        out->kind = VALUE_TEXT;
        break;
    case TOK_NOT:
    case TOK_COMPLEMENT:
    case TOK_SUB:
        next_token(lexer);
        enter_nesting();
        eval_unary(lexer, out);
        leave_nesting();
        apply_unary(token, out);
        break;
    case TOK_LPAREN:
        next_token(lexer);
        enter_nesting();
        eval_expression(lexer, out);
        leave_nesting();
        if (out->kind != VALUE_INVALID) expect_token(lexer, TOK_RPAREN, out);
        break;
    case TOK_LBRACKET:
        next_token(lexer);
        eval_command(lexer, out);
        break;
    case TOK_DEFINED:
        next_token(lexer);
        eval_defined(lexer, out);
        break;
    case TOK_EXIST:
        next_token(lexer);
        eval_exist(lexer, out);
        break;
    default:
        // No operand starts here; the token stays for the levels above.
        break;
    }
}

// An operand, then as long as an operator of min_level or above follows, the
// operator and its right operand, which takes only operators that bind
// tighter. Starting at level 1 this parses a whole expression.
void eval_binary(expr_lexer *lexer, uint32_t min_level, expr_value *out) {
    eval_unary(lexer, out);
    for (;;) {
        const uint32_t token = peek_token(lexer);
        const uint32_t level = operator_level(token);
        if (level == 0 || level < min_level) return;
        next_token(lexer);
        expr_value operand;
        eval_binary(lexer, level + 1, &operand);
        apply_binary(token, out, &operand);
    }
}

} // namespace

int eval_condition(const char16_t *text) {
    expr_lexer lexer;
    init_lexer(&lexer, text);
    nesting_depth = 0;
    expr_value value;
    eval_expression(&lexer, &value);
    // The parse always ends on a peek, so the token behind the expression is held.
    if (value.kind == VALUE_NUMBER && lexer.held && lexer.look_ahead == TOK_END)
        return value.payload.number != 0 ? 1 : 0;
    release_value(&value);
    report(MSG_BAD_EXPRESSION + FATAL);
    return 0;
}

#include "signing/RequirementParser.h"

#include <algorithm>

#include "signing/requirement_conditions.h"

namespace tovrek::signing {
namespace {

using Expression = RequirementExpression;

// How conditions are joined. Recursive descent, one function for each rule; each answers false
// after it has put the error into the slot. `height` tells the tree's height so far, `depth` how
// far inside of it the rule stands.
class Parser {
 public:
  Parser(std::string_view source, ErrorText* error) : tokens_(source, error) {}

  bool whole(Expression* out) {
    int height = 0;
    if (!disjunction(out, &height, 0)) return false;
    tokens_.skipSemicolons();
    return tokens_.atEnd() || tokens_.unexpected("the end, \"and\" or \"or\"");
  }
  bool set(std::map<uint32_t, std::string>* out);

 private:
  using Rule = bool (Parser::*)(Expression* out, int* height, int depth);

  bool disjunction(Expression* out, int* height, int depth) {
    return joined(RequirementOp::kOr, "or", &Parser::conjunction, out, height, depth);
  }
  bool conjunction(Expression* out, int* height, int depth) {
    return joined(RequirementOp::kAnd, "and", &Parser::primary, out, height, depth);
  }
  bool joined(RequirementOp op, std::string_view word, Rule operand, Expression* out, int* height,
              int depth);
  bool join(RequirementOp op, Expression* left, int* height, Expression right, int rightHeight);
  bool primary(Expression* out, int* height, int depth);
  bool inParentheses(Expression* out, int* height, int depth);

  RequirementTokens tokens_;
};

bool Parser::set(std::map<uint32_t, std::string>* out) {
  tokens_.skipSemicolons();
  do {
    uint32_t type = 0;
    for (uint32_t i = 1; type == 0 && i < std::size(kRequirementTypes); ++i) {
      if (tokens_.token().isWord(kRequirementTypes[i])) type = i;
    }
    if (type == 0) return tokens_.unexpected("host, guest, designated, library or plugin");
    if (out->count(type) != 0) return tokens_.failHere("this type was there before");
    tokens_.advance();
    Expression expression;
    int height = 0;
    if (!tokens_.wantSign("=>") || !disjunction(&expression, &height, 0)) return false;
    (*out)[type] = expression.blob();
    tokens_.skipSemicolons();
  } while (!tokens_.atEnd());
  return true;
}

bool Parser::joined(RequirementOp op, std::string_view word, Rule operand, Expression* out,
                    int* height, int depth) {
  if (!(this->*operand)(out, height, depth)) return false;
  while (tokens_.takeWord(word)) {
    Expression right;
    int rightHeight = 0;
    if (!(this->*operand)(&right, &rightHeight, depth) ||
        !join(op, out, height, std::move(right), rightHeight)) {
      return false;
    }
  }
  return true;
}

bool Parser::join(RequirementOp op, Expression* left, int* height, Expression right,
                  int rightHeight) {
  *height = std::max(*height, rightHeight) + 1;
  if (*height > kDeepestRequirement)
    return tokens_.failHere("this is too long or nested too deeply");
  Expression joined;
  joined.op = op;
  joined.operands.push_back(std::move(*left));
  joined.operands.push_back(std::move(right));
  *left = std::move(joined);
  return true;
}

bool Parser::primary(Expression* out, int* height, int depth) {
  if (depth >= kDeepestRequirement) return tokens_.failHere("this is nested too deeply");
  if (tokens_.takeSign("!") || tokens_.takeWord("not")) {
    out->op = RequirementOp::kNot;
    if (!primary(&out->operands.emplace_back(), height, depth + 1)) return false;
    if (++*height > kDeepestRequirement) return tokens_.failHere("this is nested too deeply");
    return true;
  }
  if (tokens_.takeSign("(")) return inParentheses(out, height, depth);
  return parseCondition(&tokens_, out);
}

// A lone name in parentheses stands for a requirement that the system knows under it.
bool Parser::inParentheses(Expression* out, int* height, int depth) {
  if (tokens_.isString() && !tokens_.isKeyword()) {
    out->op = RequirementOp::kNamedCode;
    return tokens_.wantString(&out->key) && tokens_.wantSign(")");
  }
  return disjunction(out, height, depth + 1) && tokens_.wantSign(")");
}

}  // namespace

std::optional<RequirementExpression> parseRequirement(std::string_view source, ErrorText* error) {
  RequirementExpression expression;
  if (!Parser(source, error).whole(&expression)) return std::nullopt;
  return expression;
}

std::optional<std::map<uint32_t, std::string>> parseRequirementSet(std::string_view source,
                                                                   ErrorText* error) {
  std::map<uint32_t, std::string> requirements;
  if (!Parser(source, error).set(&requirements)) return std::nullopt;
  return requirements;
}

}  // namespace tovrek::signing

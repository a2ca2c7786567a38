#include "tools/rulecheck/rule_check.h"

#include <cstdio>

int main(int argc, char** argv) {
    return halvo::rulecheck::runRuleCheck(argc, argv, stdin, stdout, stderr);
}

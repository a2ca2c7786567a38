#include "rulefiles/prompt.h"

namespace halvo::rulefiles {

int areYouSure(const char* prompt) {
    return areYouSure(prompt, stdin, stdout);
}

int areYouSure(const char* prompt, std::FILE* in, std::FILE* out) {
    for (;;) {
        std::fprintf(out, "%s", prompt);
        std::fflush(out);
        int answer = 0;
        do {
            answer = std::fgetc(in);
        } while (answer == '\n');
        if (answer == 'y' || answer == 'n')
            return answer;
    }
}

} // namespace halvo::rulefiles

// Builds the text database "text.mdb" from its reviewed source (lang/texts.tsv).
// Usage: quorel_make_textdb SOURCE.tsv OUTPUT.mdb

#include "lang/TextSource.h"
#include "util/Error.h"

#include <fstream>
#include <iostream>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "Usage: quorel_make_textdb SOURCE.tsv OUTPUT.mdb\n";
        return 64;
    }
    try {
        std::ifstream in(argv[1], std::ios::binary);
        if (!in) {
            std::cerr << "quorel_make_textdb: cannot read " << argv[1] << "\n";
            return 1;
        }
        const auto table = quorel::lang::ReadTextSource(in, argv[1]);
        quorel::lang::WriteTextDatabase(table, argv[2]);
    } catch (const quorel::Error& e) {
        std::cerr << "quorel_make_textdb: " << e.Description() << "\n";
        return 1;
    }
    return 0;
}

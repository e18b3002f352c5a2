#include "tavik/tavik.h"

int main() { return tavik::TAVIK::installed() == nullptr ? 0 : 1; }

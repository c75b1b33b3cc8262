#include "Omnira/OmniraApp.h"

int main(int argc, char** argv) { return omnira::OmniraApp::run(argc, argv); }

#include "app/AgentApplication.h"

int main(int argc, char** argv) { return varnoth::AgentApplication::main(argc, argv); }

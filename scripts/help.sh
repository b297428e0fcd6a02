#!/bin/sh
# The words of the Makefile.
cat <<'TEXT'
make build       the library and the example agent, in build/release
make run         runs the example agent for a few seconds and shows its log
make run-corba   the same with its CORBA bundle, naming and event service
make test        builds and runs all tests
make asan        ... under AddressSanitizer and UndefinedBehaviorSanitizer
make tsan        ... under ThreadSanitizer
make coverage    ... and reports what they cover
make format      formats the sources
make lint        checks the format and runs the static checks
make locks       checks with clang that locks are held where the sources say so
make abi         compares the exported interface with the one that bundles were built against
make bench       measures the library beside its peers: table, JSON and plots
make instructions counts the instructions of the hot paths, against bench/instructions.txt
make docs        writes the reference of the public headers
make install     installs under PREFIX (/usr/local), below DESTDIR if set
make package     makes a .deb in build/package
make clean       removes the folder build

Each first installs the packages it lacks. JOBS=<n> sets how many jobs run at once.
TEXT

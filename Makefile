# The front door. Every word is a script that can be called by itself, too.
.PHONY: build run run-corba test asan tsan coverage format lint locks abi bench instructions docs install package clean help

build:      ; @scripts/build.sh
run:        ; @scripts/run.sh
run-corba:  ; @scripts/run.sh --corba
test:       ; @scripts/test.sh
asan:       ; @scripts/test.sh asan
tsan:       ; @scripts/test.sh tsan
coverage:   ; @scripts/coverage.sh
format:     ; @scripts/format.sh
lint:       ; @scripts/format.sh --check && scripts/lint.sh
locks:      ; @scripts/threadsafety.sh
abi:        ; @scripts/abi.sh
bench:      ; @scripts/bench.sh
instructions: ; @scripts/instructions.sh
docs:       ; @scripts/docs.sh
install:    ; @scripts/install.sh
package:    ; @scripts/package.sh
clean:      ; @rm -rf build
help:       ; @scripts/help.sh

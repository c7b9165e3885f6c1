# The two commands of the README, and the sanitizer builds. Each target installs what it needs.
BUILD ?= build
JOBS ?= 2
CMAKE_FLAGS ?=
CTEST_ARGS ?=

.PHONY: all deps build run demo test asan tsan bench format clean

all: build

deps:
	@scripts/install-deps

$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS)

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

# Builds and starts the tray application.
run: build
	./$(BUILD)/vaskel

# The tray application beside a local server and the sync stand-in; both stop when it ends.
# Sign in to http://127.0.0.1:8080 as demo@example.com / demo.
demo: build
	./$(BUILD)/vaskel-devserver --port 8080 & server=$$!; \
	./$(BUILD)/vaskel-sync-standin & standin=$$!; \
	trap 'kill $$server $$standin 2>/dev/null' EXIT INT TERM; \
	./$(BUILD)/vaskel

# Builds and runs every test, the keychain ones inside a private session bus.
test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) $(CTEST_ARGS)

# The tests under AddressSanitizer and UndefinedBehaviorSanitizer, and under ThreadSanitizer.
asan:
	$(MAKE) test BUILD=build-asan CMAKE_FLAGS="-DCMAKE_BUILD_TYPE=Debug -DVASKEL_SANITIZE=address,undefined"
tsan:
	$(MAKE) test BUILD=build-tsan CMAKE_FLAGS="-DCMAKE_BUILD_TYPE=Debug -DVASKEL_SANITIZE=thread" \
	  CTEST_ARGS="-E 'EndToEnd|ProgramEntry|DevServer'"

bench: build
	$(BUILD)/bench_shared_bench
	$(BUILD)/bench_server_bench
	scripts/with-secret-service -- $(BUILD)/bench_keychain_bench
	bench/cli_startup.sh $(BUILD)
	bench/tray_idle.sh $(BUILD)

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf build build-asan build-tsan

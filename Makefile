# Everything goes through these targets; each one installs what is missing first.
BUILD_DIR ?= build
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo
JOBS ?= $(shell nproc)

.PHONY: all bootstrap configure build run test fuzz bench demo emulator format install uninstall \
	clean package package-check

all: build

bootstrap:
	@scripts/bootstrap

configure: bootstrap
	cmake -S . -B $(BUILD_DIR) -G Ninja $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

run: build
	@scripts/run $(BUILD_DIR)

# Every test, then the unit tests again and a short run of each fuzzer in the sanitised
# build (build-sanitize: clang with AddressSanitizer and UndefinedBehaviorSanitizer).
test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)
	@scripts/fuzz --seconds 20

# The fuzzers for longer: FUZZ_SECONDS each (default 300).
FUZZ_SECONDS ?= 300
fuzz: bootstrap
	@scripts/fuzz --seconds $(FUZZ_SECONDS)

bench: build
	@scripts/bench $(BUILD_DIR)

# The probe against an emulated household and a private sound server, in a private network
# namespace: Velotide at work without any speakers.
demo: build
	@scripts/demo $(BUILD_DIR)

# A household of emulated speakers on loopback, for trying things without a Sonos.
emulator: build
	$(BUILD_DIR)/tools/emulator/velotide-emulator tools/emulator/households/home-theatre.json

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

install: build
	cmake --install $(BUILD_DIR)

# The Debian package, velotide_<version>_<arch>.deb in $(BUILD_DIR)/package, built by
# dpkg-buildpackage in a copy of the checkout there so that the checkout stays clean.
package: bootstrap
	@scripts/package $(BUILD_DIR)

# lintian, the desktop file, the AppStream data, the unit's hardening, and an install, upgrade
# and purge on a fresh Debian 12 root (made once by debootstrap, kept in $(BUILD_DIR)/package).
package-check: package
	@scripts/package-check $(BUILD_DIR)

uninstall:
	cmake --build $(BUILD_DIR) --target uninstall

clean:
	rm -rf $(BUILD_DIR) build-sanitize

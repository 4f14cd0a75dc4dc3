# Set-up and everyday commands: `make run` inspects the bundled sample, `make test` runs the suite.
BUILD ?= build
SAN_BUILD ?= build-asan
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
PACKAGES = cmake g++ make pkg-config libgtest-dev libjpeg62-turbo-dev libjpeg-turbo-progs \
  libimage-exiftool-perl chromium jpeginfo python3-jsonschema
SAMPLE = tests/golden/sample.jpg

SOURCES = $(shell git ls-files '*.cpp' '*.h' 2>/dev/null || \
  find base bench decode exif jpeg merge platform tests tool -name '*.cpp' -o -name '*.h')

.PHONY: all deps build run test sanitize plain install-check bench format format-check clean

all: build

# Installs what is missing from Debian's packages when run as root.
deps:
	@missing=""; for p in $(PACKAGES); do \
	  dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    echo "Installing:$$missing"; \
	    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	  else echo "Missing packages (install as root):$$missing"; fi; fi

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS)
	cmake --build $(BUILD) -j $(JOBS)

run: build
	$(BUILD)/corvi -d $(SAMPLE)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

sanitize: deps
	cmake -S . -B $(SAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCORVI_SANITIZE=ON -DCORVI_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build $(SAN_BUILD) -j $(JOBS)
	cd $(SAN_BUILD) && ctest --output-on-failure -j $(JOBS)

# The plain code paths alone (no SSE2 or AVX2 forms), with the decoder's tests.
plain: deps
	cmake -S . -B build-plain -DCMAKE_BUILD_TYPE=Release -DCORVI_PLAIN=ON -DCORVI_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build build-plain -j $(JOBS) --target decode_tests
	build-plain/tests/decode_tests --gtest_brief=1

# Installs to a temporary prefix and builds and runs examples/ against the installed package.
install-check: build
	BUILD=$(BUILD) .ci/install-check

bench: build
	$(BUILD)/bench/scan_bench ../shared/corpus
	$(BUILD)/bench/decode_bench ../shared/corpus/oppo-r7-13mp-420.jpg
	$(BUILD)/bench/merge_bench ../shared/corpus/oppo-r7-13mp-420.jpg

# Every source file as .clang-format says: `format` rewrites them, `format-check` fails on any
# difference (CI runs it).
format:
	@$(MAKE) --no-print-directory deps PACKAGES=clang-format
	@clang-format -i $(SOURCES)

format-check:
	@$(MAKE) --no-print-directory deps PACKAGES=clang-format
	@clang-format --dry-run --Werror $(SOURCES) && echo "Formatting: $(words $(SOURCES)) files as .clang-format says"

clean:
	rm -rf $(BUILD) $(SAN_BUILD) build-plain

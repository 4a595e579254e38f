// A frame of the board as the game paints it while cubes turn, and the same picture drawn as one
// batch: all vertices transformed in advance, one buffer, one draw call per texture. Times are the
// main thread's processor time.
#include <algorithm>
#include <string>
#include <vector>

#include <GL/glew.h>
#include <GLFW/glfw3.h>
#include <benchmark/benchmark.h>

#include "game/board.h"
#include "game/frame.h"
#include "game/minefield.h"
#include "game/moves.h"
#include "platform/application.h"
#include "platform/glfew.h"

static void OpenBoard(uint8_t side)
{
    if (!CreateApplication(0, 0, 1024, 768, "bench", "", "", 255, 255, 0, 255))
        std::exit(EXIT_FAILURE);
    xDim = yDim = side;
    GenerateMinefield();
    CreateBoard();
}

static void CloseBoard()
{
    DestroyBoard();
    DestroyApplication();
}

// Without the frame limit of GLFEW_SwapBuffers.
static void EndFrame()
{
    glfwSwapBuffers(System_Window);
    glFinish();
}

static void PaintMoving(benchmark::State &state, float &angle)
{
    OpenBoard(static_cast<uint8_t>(state.range(0)));
    Paint();
    EndFrame();
    const uint64_t before = GLFEW_DrawCalls;
    for (auto _ : state) {
        angle += 1;
        Paint();
        EndFrame();
    }
    state.counters["calls"] = benchmark::Counter(static_cast<double>(GLFEW_DrawCalls - before),
                                                 benchmark::Counter::kAvgIterations);
    CloseBoard();
}

static void OneCubeTurns(benchmark::State &state)
{
    mb = GAME_TURNING;
    PaintMoving(state, MineField[0][0].xAngle);
}

static void AllCubesTurn(benchmark::State &state)
{
    mb = GAME_WON;
    PaintMoving(state, xr);
}

static uint32_t Compile(uint32_t program, GLenum type, const char *source)
{
    const uint32_t shader = glCreateShader(type);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    glAttachShader(program, shader);
    return program;
}

namespace
{
struct BATCH_RUN {
    uint32_t Texture;
    int32_t First, Count;
};
}  // namespace

// Every face's vertices in clip space, sorted by texture.
static std::vector<BATCH_RUN> FillBatch()
{
    std::vector<const GLFEW_VERTEX *> faces;
    for (size_t f = 0; f < FACE_COUNT; f++)
        for (size_t y = 0; y < yDim; y++)
            for (size_t x = 0; x < xDim; x++)
                faces.push_back(&OGLvertex[x][y][f]);
    std::stable_sort(faces.begin(), faces.end(),
                     [](const auto *a, const auto *b) { return a->Texture < b->Texture; });
    std::vector<float> data;
    std::vector<BATCH_RUN> runs;
    for (const GLFEW_VERTEX *face : faces) {
        if (runs.empty() || runs.back().Texture != face->Texture)
            runs.push_back({face->Texture, static_cast<int32_t>(data.size() / 6), 0});
        runs.back().Count += face->Count;
        for (int i = 0; i < face->Count; i++) {
            const float *v = face->TexturedVertices + 5 * i;
            const EXTRA_MATRIX &m = face->MVP;
            for (size_t r = 0; r < 16; r += 4)
                data.push_back(m[r] * v[0] + m[r + 1] * v[1] + m[r + 2] * v[2] + m[r + 3]);
            data.insert(data.end(), {v[3], v[4]});
        }
    }
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(data.size() * sizeof(float)), data.data(),
                 GL_STATIC_DRAW);
    return runs;
}

static void OneBatch(benchmark::State &state)
{
    mb = GAME_IDLE;
    OpenBoard(static_cast<uint8_t>(state.range(0)));
    Paint();  // computes the matrices
    EndFrame();
    uint32_t buffer;
    glGenBuffers(1, &buffer);
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    const std::vector<BATCH_RUN> runs = FillBatch();
    const uint32_t program = glCreateProgram();
    Compile(program, GL_VERTEX_SHADER,
            "#version 330 core\nlayout(location = 0) in vec4 p;\nlayout(location = 1) in vec2 t;\n"
            "out vec2 UV;\nvoid main() { gl_Position = p; UV = t; }\n");
    Compile(program, GL_FRAGMENT_SHADER,
            "#version 330 core\nin vec2 UV;\nout vec3 color;\nuniform sampler2D s;\n"
            "void main() { color = texture(s, UV).rgb; }\n");
    glLinkProgram(program);
    glUseProgram(program);
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 24, nullptr);
    glEnableVertexAttribArray(1);
    glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 24, reinterpret_cast<const void *>(16));
    for (auto _ : state) {
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        for (const BATCH_RUN &run : runs) {
            glBindTexture(GL_TEXTURE_2D, run.Texture);
            glDrawArrays(GL_TRIANGLES, run.First, run.Count);
        }
        EndFrame();
    }
    CloseBoard();
}

BENCHMARK(OneCubeTurns)->Arg(10)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(AllCubesTurn)->Arg(10)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OneBatch)->Arg(10)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();

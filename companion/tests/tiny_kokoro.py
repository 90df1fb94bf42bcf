"""Writes a tiny model with Kokoro's inputs and outputs, and voices for it: tiny_kokoro.py DIRECTORY

Each token becomes a tone of its own, as long as the speed allows and as loud as the voice's style says. Needs the
packages onnx and numpy.
"""

import sys
from pathlib import Path

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

SAMPLES_PER_TOKEN = 600
LOUDNESS = {"af_heart": 0.5, "am_adam": 0.5, "bm_george": 0.5, "bf_emma": 0.25}


def constants() -> list[TensorProto]:
    return [
        numpy_helper.from_array(np.array(value, dtype=dtype), name)
        for name, value, dtype in (
            ("samples", SAMPLES_PER_TOKEN, np.float32),
            ("zero", 0, np.float32),
            ("one", 1, np.float32),
            ("turn", 2 * np.pi * 10 / 24_000, np.float32),
            ("none", [], np.int64),
            ("flat", [-1], np.int64),
            ("column", [-1, 1], np.int64),
        )
    ]


def graph() -> onnx.GraphProto:
    node = helper.make_node
    nodes = [
        node("Reshape", ["speed", "none"], ["pace"]),
        node("Div", ["samples", "pace"], ["length"]),
        node("Range", ["zero", "length", "one"], ["steps"]),
        node("Mul", ["steps", "turn"], ["angles"]),
        node("Cast", ["tokens"], ["pitches"], to=TensorProto.FLOAT),
        node("Reshape", ["pitches", "column"], ["rows"]),
        node("Mul", ["rows", "angles"], ["phases"]),
        node("Sin", ["phases"], ["tones"]),
        node("ReduceMean", ["style"], ["loudness"], keepdims=0),
        node("Mul", ["tones", "loudness"], ["sound"]),
        node("Reshape", ["sound", "flat"], ["audio"]),
    ]
    inputs = [
        helper.make_tensor_value_info("tokens", TensorProto.INT64, [1, "n"]),
        helper.make_tensor_value_info("style", TensorProto.FLOAT, [1, 256]),
        helper.make_tensor_value_info("speed", TensorProto.FLOAT, [1]),
    ]
    outputs = [helper.make_tensor_value_info("audio", TensorProto.FLOAT, ["m"])]
    return helper.make_graph(nodes, "tiny-kokoro", inputs, outputs, constants())


def main(directory: Path) -> None:
    model = helper.make_model(graph(), opset_imports=[helper.make_opsetid("", 17)], ir_version=8)
    onnx.checker.check_model(model, full_check=True)
    onnx.save(model, directory / "kokoro-v1.0.onnx")
    voices = {name: np.full((510, 1, 256), value, dtype=np.float32) for name, value in LOUDNESS.items()}
    with open(directory / "voices-v1.0.bin", "wb") as file:
        np.savez(file, **voices)


if __name__ == "__main__":
    main(Path(sys.argv[1]))

// SPDX-License-Identifier: BSD-2-Clause
// A labelled choice among named things.
import { nameOf } from "./report";

interface Props {
  label: string;
  value: string;
  options: readonly { id: string; name?: string | undefined }[];
  onChoose: (id: string) => void;
}

export function Select({ label, value, options, onChoose }: Props) {
  return (
    <label class="field">
      <span>{label}</span>
      <select value={value} onChange={(event) => onChoose(event.currentTarget.value)}>
        {options.map((option) => (
          <option key={option.id} value={option.id} selected={option.id === value}>
            {nameOf(option)}
          </option>
        ))}
      </select>
    </label>
  );
}

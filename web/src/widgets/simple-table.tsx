// A table that becomes a list where there is no room for it.
import type { ReactNode } from "react";
import "./simple-table.css";

interface SimpleTableProps {
    label: string;
    columns: string[];
    /** The first cell names its row. */
    rows: { key: string; cells: ReactNode[] }[];
}

export function SimpleTable({ label, columns, rows }: SimpleTableProps) {
    return (
        <table className="ucfgd-table" aria-label={label}>
            <thead>
                <tr>{columns.map(column => <th key={column} scope="col">{column}</th>)}</tr>
            </thead>
            <tbody>
                {rows.map(({ key, cells }) => (
                    <tr key={key}>
                        {cells.map((cell, at) => at === 0
                            ? <th key={at} scope="row" data-label={columns[at]}>{cell}</th>
                            : <td key={at} data-label={columns[at]}>{cell}</td>)}
                    </tr>
                ))}
            </tbody>
        </table>
    );
}
